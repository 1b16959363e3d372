#include "client/channel/channel_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <deque>
#include <future>
#include <vector>

#include "client/channel/channel_client.h"
#include "client/policy/policy_text.h"
#include "platform/local.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

using platform::ChannelWait;

TEST(CallerPlaces, OneUserLeavesRoomForOthersAndUsersForAdministrators) {
  CallerPlaces places({.all = 6, .of_users = 4, .of_user = 2, .of_strangers = 4});
  const platform::LocalCaller callers[] = {{platform::CallerKind::kInteractiveUser, "a"},
                                           {platform::CallerKind::kInteractiveUser, "b"},
                                           {platform::CallerKind::kInteractiveUser, "c"},
                                           {platform::CallerKind::kAdministrator, "a"}};
  std::vector<std::shared_ptr<void>> held;
  // Which caller asks, or nobody who is known, and whether there is room.
  const std::pair<int, bool> turns[] = {{0, true},  {0, true},  {0, false}, {1, true},  {1, true},
                                        {2, false}, {-1, true}, {3, true},  {3, false}, {-1, false}};
  for (const auto& [caller, room] : turns) {
    auto place = caller < 0 ? places.TakeForStranger(std::nullopt) : places.Take(callers[caller]);
    EXPECT_EQ(place != nullptr, room) << held.size();
    if (place != nullptr) held.push_back(std::move(place));
  }
  held.erase(held.begin());
  EXPECT_EQ(places.Take(callers[2]) != nullptr, true) << "given back at once, too";
  EXPECT_NE(places.Take(callers[0]), nullptr);
}

TEST(CallerPlaces, ASessionOfStrangersLeavesHalfOfThePlacesToOthers) {
  CallerPlaces places({.all = 9, .of_strangers = 8});
  std::vector<std::shared_ptr<void>> held;
  const auto fill = [&](std::optional<std::uint32_t> session) {
    std::size_t count = 0;
    while (auto place = places.TakeForStranger(session)) {
      held.push_back(std::move(place));
      ++count;
    }
    return count;
  };
  for (const auto& [session, count] :
       {std::pair<std::optional<std::uint32_t>, std::size_t>(1, 4), {2, 2}, {std::nullopt, 1}, {0, 1}, {3, 0}}) {
    EXPECT_EQ(fill(session), count) << session.value_or(99);
  }
  const platform::LocalCaller administrator{platform::CallerKind::kAdministrator, "a"};
  EXPECT_NE(places.Take(administrator), nullptr);
  held.clear();
  EXPECT_EQ(fill(3), 4u) << "given back";
}

/// Callers as Windows has them: the system says who one is when something was received, and before that its session.
class PlayedPipe {
 public:
  explicit PlayedPipe(platform::Runtime& runtime) : runtime_(runtime) {}

  /// Somebody connects, and says `bytes` if there are any. The future has the first bytes that come back.
  std::future<std::string> Connect(std::uint32_t session, std::string bytes) {
    auto caller = std::make_unique<Caller>(*this, session, std::move(bytes));
    std::future<std::string> heard = caller->heard.get_future();
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(std::move(caller));
    }
    news_->Set();
    return heard;
  }

  platform::LocalListening Listen(platform::Waitable& stop) {
    stop_ = &stop;
    return {std::make_unique<Listener>(*this), {}};
  }

 private:
  class Caller final : public platform::LocalConnection {
   public:
    Caller(PlayedPipe& pipe, std::uint32_t session, std::string bytes)
        : pipe_(pipe), session_(session), bytes_(std::move(bytes)) {}

    ChannelWait Receive(std::span<char> buffer, platform::SteadyTime deadline, std::size_t& received) override {
      received = bytes_.copy(buffer.data(), buffer.size());
      bytes_.erase(0, received);
      if (received > 0) {
        was_received_ = true;
        return ChannelWait::kDone;
      }
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - pipe_.runtime_.clock().Steady());
      return pipe_.runtime_.Wait(*pipe_.stop_, left) == 0 ? ChannelWait::kStopped : ChannelWait::kTimeout;
    }
    ChannelWait Send(std::string_view bytes, platform::SteadyTime /*deadline*/) override {
      if (!std::exchange(has_heard_, true)) heard.set_value(std::string(bytes));
      return ChannelWait::kDone;
    }
    std::optional<platform::LocalCaller> Identify() override {
      if (!was_received_) return std::nullopt;
      return platform::LocalCaller{platform::CallerKind::kInteractiveUser, "user " + std::to_string(session_)};
    }
    std::optional<std::uint32_t> ClaimedSession() override { return session_; }
    bool HasHungUp() override { return false; }

    std::promise<std::string> heard;

   private:
    PlayedPipe& pipe_;
    const std::uint32_t session_;
    std::string bytes_;
    bool was_received_ = false;
    bool has_heard_ = false;
  };
  class Listener final : public platform::LocalListener {
   public:
    explicit Listener(PlayedPipe& pipe) : pipe_(pipe) {}
    std::unique_ptr<platform::LocalConnection> Accept() override {
      for (;;) {
        {
          const std::lock_guard lock(pipe_.mutex_);
          if (!pipe_.waiting_.empty()) {
            auto first = std::move(pipe_.waiting_.front());
            pipe_.waiting_.pop_front();
            return first;
          }
        }
        platform::Waitable* const objects[] = {pipe_.stop_, pipe_.news_.get()};
        if (pipe_.runtime_.WaitAny(objects, platform::kForever) == 0) return nullptr;
      }
    }

   private:
    PlayedPipe& pipe_;
  };

  platform::Runtime& runtime_;
  const std::unique_ptr<platform::Event> news_ = runtime_.MakeEvent(platform::EventReset::kAuto);
  platform::Waitable* stop_ = nullptr;
  std::mutex mutex_;  ///< Guards the next.
  std::deque<std::unique_ptr<Caller>> waiting_;
};

TEST(ChannelServerStrangers, OnesOfOneSessionKeepNoOtherSessionOut) {
  const std::unique_ptr<platform::Runtime> runtime = platform::MakeRealRuntime({});
  const Log log;
  Refusals refusals(log);
  PlayedPipe pipe(*runtime);
  ChannelServer server(
      *runtime, log, refusals,
      [](const platform::LocalCaller&, std::string_view, const auto&) { return ChannelServer::Answer{}; },
      {.stranger_patience = std::chrono::minutes(5)},
      [&pipe](platform::Runtime&, const std::filesystem::path&, platform::Waitable& stop) {
        return pipe.Listen(stop);
      });
  ASSERT_EQ(server.Start({}), "");
  constexpr std::size_t kSilent = 20;
  std::vector<std::future<std::string>> silent;
  for (std::size_t i = 0; i < kSilent; ++i)
    silent.push_back(pipe.Connect(1, ""));
  // They are let in in turn: behind them there is a place for whoever is of another session, and one speaks at once.
  auto other = pipe.Connect(2, FrameOf(GreetingToJson()));
  EXPECT_EQ(other.get(), FrameOf(GreetingToJson()));
  EXPECT_EQ(refusals.counts()[static_cast<std::size_t>(Refusal::kNoRoom)],
            kSilent - CallerPlaces::Limits().of_strangers / 2);
}

class ChannelServerTest : public testing::Test {
 protected:
  void Start(ChannelLimits limits = {}) {
    MakeServer(limits);
    ASSERT_EQ(server_->Start(place_), "");
  }
  void MakeServer(ChannelLimits limits) {
    server_.emplace(
        *runtime_, log_, refusals_,
        [this](const platform::LocalCaller& caller, std::string_view request, const ChannelServer::IsAwaited&) {
          EXPECT_EQ(caller.kind, platform::CallerKind::kOwnAccount);
          std::string problem;
          const auto read = RequestFromJson(request, problem);
          const ChannelAnswer answer =
              read ? answer_(*read) : ChannelAnswer{SessionRecorder::kChannelFailed, problem, {}};
          return ChannelServer::Answer{ToJson(answer), !read};
        },
        limits);
  }
  platform::SteadyTime Soon() const { return runtime_->clock().Steady() + std::chrono::seconds(20); }
  std::unique_ptr<platform::LocalConnection> Connect() {
    platform::LocalConnecting connecting = platform::ConnectLocally(*runtime_, place_, nullptr, Soon());
    EXPECT_NE(connecting.connection, nullptr) << connecting.problem;
    return std::move(connecting.connection);
  }
  std::uint64_t Refused(Refusal refusal) const { return refusals_.counts()[static_cast<std::size_t>(refusal)]; }

  const TempFolder folder_;
  const std::filesystem::path place_ = folder_.path() / "run";
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  Log log_;
  Refusals refusals_{log_};
  std::function<ChannelAnswer(const ChannelRequest&)> answer_ = [](const ChannelRequest&) { return ChannelAnswer(); };
  std::optional<ChannelServer> server_;
};

TEST_F(ChannelServerTest, ClientsAreAnsweredSideBySide) {
  constexpr int kClients = 8;
  // Nobody gets an answer before all have asked.
  std::barrier all(kClients);
  answer_ = [&](const ChannelRequest& request) {
    if (request.wish == ChannelWish::kInit) all.arrive_and_wait();
    return ChannelAnswer{static_cast<int>(request.item_name.size()), {}, {}};
  };
  Start();
  std::vector<std::jthread> threads;
  for (int i = 0; i < kClients; ++i) {
    threads.emplace_back([&] {
      ChannelClient client(*runtime_, place_);
      ChannelRecorder recorder(client, log_);
      EXPECT_EQ(recorder.LogDevInitEvent(L"D"), 0);
      for (int length = 0; length < 50; ++length)
        EXPECT_EQ(recorder.WriteItem(L"D", std::wstring(length, L'i'), {}, L""), length);
    });
  }
  threads.clear();
  EXPECT_EQ(refusals_.counts(), decltype(refusals_.counts()){});
}

TEST_F(ChannelServerTest, PoliciesArriveAsTheyAre) {
  TelemetryPolicy policy;
  policy.telemetry_scope = L"enhance";
  policy.settings = {{kNoHashNetworkDataSetting, L"true"}};
  policy.applicability.models = {L"M*"};
  policy.applicability.os_version_min = L"10.0";
  DataSet& dataset = policy.datasets.emplace_back();
  dataset.id = L"{ID}";
  dataset.name = L"ONE";
  dataset.enabled = false;
  dataset.settings = {{L"a", L"\"ä\""}};
  dataset.applicability.os_names = {L"Linux", L"Windows"};
  const TvkPolicy client_policy{L"path", L"subscription"};
  bool there = true;
  answer_ = [&](const ChannelRequest& request) {
    if (!there) return ChannelAnswer{SessionRecorder::kChannelFailed, "there is no policy", {}};
    return ChannelAnswer{0, {}, request.wish == ChannelWish::kPolicy ? ToJson(policy) : ToJson(client_policy)};
  };
  Start();
  ChannelClient client(*runtime_, place_);
  ChannelConfigAgent agent(client, log_);
  TelemetryPolicy read;
  TvkPolicy client_read;
  EXPECT_TRUE(agent.GetTelemetryPolicy(read) && agent.GetTvkPolicy(client_read));
  EXPECT_EQ(read, policy);
  EXPECT_EQ(client_read, client_policy);
  there = false;
  EXPECT_FALSE(agent.GetTelemetryPolicy(read));
  server_.reset();
  EXPECT_FALSE(agent.GetTelemetryPolicy(read));
  EXPECT_EQ(read, policy) << "untouched";
}

TEST_F(ChannelServerTest, NonsenseEndsItsOwnConversationAlone) {
  Start();
  ChannelClient client(*runtime_, place_);
  ASSERT_EQ(client.Ask({}).result, 0);
  const std::string greeting = FrameOf(GreetingToJson());
  const struct {
    std::string bytes;
    Refusal refusal;
  } cases[] = {{std::string(4, '\xFF'), Refusal::kBroken},
               {FrameOf("hello"), Refusal::kUnknown},
               {FrameOf(R"({"version": 2})"), Refusal::kUnknown},
               {greeting + std::string(4, '\0'), Refusal::kBroken},
               {FrameOf(std::string(kLongestGreeting + 1, ' ')), Refusal::kBroken},
               {greeting + FrameOf(std::string(kLongestRequest + 1, ' ')), Refusal::kBroken}};
  for (const auto& [bytes, refusal] : cases) {
    const std::uint64_t before = Refused(refusal);
    const auto connection = Connect();
    connection->Send(bytes, Soon());
    std::array<char, 100> buffer;
    std::size_t count = 0;
    ChannelWait wait = ChannelWait::kDone;
    while (wait == ChannelWait::kDone)
      wait = connection->Receive(buffer, Soon(), count);
    EXPECT_EQ(wait, ChannelWait::kClosed);
    EXPECT_EQ(Refused(refusal), before + 1);
    EXPECT_EQ(client.Ask({}).result, 0) << "another caller's conversation goes on";
  }
}

TEST_F(ChannelServerTest, HalfAMessageIsNotWaitedForLong) {
  Start({.patience = std::chrono::seconds(2)});
  const auto half = Connect();
  const auto quiet = Connect();
  ASSERT_EQ(half->Send(FrameOf(GreetingToJson()).substr(0, 9), Soon()), ChannelWait::kDone);
  std::array<char, 100> buffer;
  std::size_t count = 0;
  EXPECT_EQ(half->Receive(buffer, Soon(), count), ChannelWait::kClosed);
  EXPECT_EQ(quiet->Receive(buffer, Soon(), count), ChannelWait::kClosed);
  EXPECT_EQ(Refused(Refusal::kBroken), 1u) << "who says nothing breaks nothing";
}

TEST_F(ChannelServerTest, AHundredThatSayNothingKeepNobodyAway) {
  Start({.patience = std::chrono::seconds(1)});
  std::vector<std::unique_ptr<platform::LocalConnection>> silent;
  for (int i = 0; i < 100; ++i)
    silent.push_back(Connect());
  ChannelClient client(*runtime_, place_);
  EXPECT_EQ(client.Ask({}).result, 0);
  EXPECT_GE(Refused(Refusal::kNoRoom), 1u);
}

TEST_F(ChannelServerTest, WhoFindsNoRoomIsLetInWhenOthersWent) {
  Start({.places = {.all = 4}, .patience = std::chrono::seconds(2)});
  std::vector<std::unique_ptr<platform::LocalConnection>> quiet;
  for (int i = 0; i < 4; ++i)
    quiet.push_back(Connect());
  ChannelClient fifth(*runtime_, place_);
  EXPECT_EQ(fifth.Ask({}).result, 0);
  EXPECT_GE(Refused(Refusal::kNoRoom), 1u);
}

TEST_F(ChannelServerTest, WhoNeverPausesIsLookedAtAnewSometimes) {
  Start({.conversation = std::chrono::milliseconds(500)});
  MessageStream stream(Connect(), kLongestAnswer);
  const platform::SteadyTime deadline = Soon();
  ChannelWait wait = stream.Send(GreetingToJson(), deadline);
  std::string answer;
  while (wait == ChannelWait::kDone) {
    ASSERT_LT(runtime_->clock().Steady(), deadline);
    wait = stream.Send(ToJson(ChannelRequest{}), deadline);
    if (wait == ChannelWait::kDone) wait = stream.Receive(answer, deadline);
  }
  EXPECT_EQ(wait, ChannelWait::kClosed);
}

TEST_F(ChannelServerTest, WhatStandsInTheWayIsWaitedFor) {
  const auto stop = runtime_->MakeEvent(platform::EventReset::kManual);
  platform::LocalListening other = platform::ListenLocally(*runtime_, place_, *stop);
  ASSERT_NE(other.listener, nullptr) << other.problem;
  MakeServer({});
  server_->Start(place_);
  other.listener = nullptr;
  ChannelClient client(*runtime_, place_);
  const platform::SteadyTime deadline = Soon();
  while (client.Ask({}).result != 0)
    ASSERT_LT(runtime_->clock().Steady(), deadline);
}

TEST_F(ChannelServerTest, WhoGoesBeforeTheAnswerIsNoticed) {
  std::promise<void> asked;  // C++20's semaphores of this compiler sleep for ever at times (GCC bug 104928)
  std::promise<void> noticed;
  server_.emplace(*runtime_, log_, refusals_,
                  [&](const platform::LocalCaller&, std::string_view, const ChannelServer::IsAwaited& is_awaited) {
                    EXPECT_TRUE(is_awaited());
                    asked.set_value();
                    const platform::SteadyTime deadline = Soon();
                    while (is_awaited() && runtime_->clock().Steady() < deadline)
                      std::this_thread::yield();
                    EXPECT_FALSE(is_awaited());
                    noticed.set_value();
                    return ChannelServer::Answer{ToJson(ChannelAnswer())};
                  });
  ASSERT_EQ(server_->Start(place_), "");
  auto hasty = Connect();
  ASSERT_EQ(hasty->Send(FrameOf(GreetingToJson()) + FrameOf(ToJson(ChannelRequest{})), Soon()), ChannelWait::kDone);
  asked.get_future().wait();
  hasty = nullptr;
  noticed.get_future().wait();
}

TEST_F(ChannelServerTest, AClientThatAsksNothingMoreLetsGoOfItsConnection) {
  const auto stop = runtime_->MakeEvent(platform::EventReset::kManual);
  const platform::LocalListening listening = platform::ListenLocally(*runtime_, place_, *stop);
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  ChannelClient client(*runtime_, place_);
  std::jthread asking([&] { EXPECT_EQ(client.Ask({}).result, 0); });
  MessageStream stream(listening.listener->Accept(), kLongestRequest);
  std::string message;
  ASSERT_EQ(stream.Receive(message, Soon()), ChannelWait::kDone);
  ASSERT_EQ(stream.Receive(message, Soon()), ChannelWait::kDone);
  client.CloseUnused();  // while it is asked: it neither waits nor takes the connection away
  ASSERT_EQ(stream.Send(GreetingToJson(), Soon()), ChannelWait::kDone);
  ASSERT_EQ(stream.Send(ToJson(ChannelAnswer()), Soon()), ChannelWait::kDone);
  asking.join();
  const platform::SteadyTime deadline = Soon();
  ChannelWait wait = ChannelWait::kTimeout;
  while (wait == ChannelWait::kTimeout && runtime_->clock().Steady() < deadline) {
    client.CloseUnused();
    wait = stream.Receive(message, runtime_->clock().Steady() + std::chrono::milliseconds(100));
  }
  EXPECT_EQ(wait, ChannelWait::kClosed);
}

TEST_F(ChannelServerTest, OnlyARefusalThatWasReadIsAskedAgain) {
  const auto stop = runtime_->MakeEvent(platform::EventReset::kManual);
  const platform::LocalListening listening = platform::ListenLocally(*runtime_, place_, *stop);
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  using Delivery = ChannelAnswer::Delivery;
  const std::vector<std::string> good = {GreetingToJson(), ToJson(ChannelAnswer())};
  const struct {
    const char* what;
    std::vector<std::string> says;  ///< In the first conversation; others are answered.
    int result;
    Delivery delivery;
    int conversations;
  } rows[] = {
      {"answered", good, 0, Delivery::kAnswered, 1},
      {"no room", {ToJson(ChannelAnswer{kChannelFull, "too many", {}})}, 0, Delivery::kAnswered, 2},
      {"closed without a word", {}, SessionRecorder::kChannelFailed, Delivery::kUnanswered, 1},
      {"closed before the answer", {GreetingToJson()}, SessionRecorder::kChannelFailed, Delivery::kUnanswered, 1}};
  for (const auto& [what, says, result, delivery, conversations] : rows) {
    SCOPED_TRACE(what);
    ChannelAnswer answer;
    std::atomic<bool> ended = false;
    // Wakes who waits for a conversation that does not come; one that has gone by then Windows shows nobody.
    std::unique_ptr<platform::LocalConnection> waker;
    std::thread asking([&] {
      answer = ChannelClient(*runtime_, place_).Ask({});
      ended = true;
      waker = Connect();
    });
    int seen = 0;
    for (;;) {
      MessageStream stream(listening.listener->Accept(), kLongestRequest);
      if (ended) break;
      std::string message;
      EXPECT_EQ(stream.Receive(message, Soon()), ChannelWait::kDone);
      EXPECT_EQ(stream.Receive(message, Soon()), ChannelWait::kDone);
      for (const std::string& said : seen++ == 0 ? says : good)
        EXPECT_EQ(stream.Send(said, Soon()), ChannelWait::kDone);
    }
    asking.join();
    EXPECT_EQ(answer.result, result);
    EXPECT_EQ(answer.delivery, delivery);
    EXPECT_EQ(seen, conversations);
  }
}

TEST_F(ChannelServerTest, TheEndWaitsForNobody) {
  Start({.patience = std::chrono::minutes(5)});
  const auto quiet = Connect();
  const auto half = Connect();
  ASSERT_EQ(half->Send(FrameOf(GreetingToJson()) + "ab", Soon()), ChannelWait::kDone);
  ChannelClient client(*runtime_, place_);
  ASSERT_EQ(client.Ask({}).result, 0);
  const platform::SteadyTime begin = runtime_->clock().Steady();
  server_.reset();
  EXPECT_LT(runtime_->clock().Steady() - begin, std::chrono::seconds(60)) << "less than its patience";
  EXPECT_EQ(client.Ask({}).result, SessionRecorder::kChannelFailed);
}

TEST_F(ChannelServerTest, TheEndComesBeforeWhatIsStillToBeAnswered) {
  Start({.patience = std::chrono::minutes(5)});
  std::atomic<int> asked = 0;
  std::promise<void> go_on;
  answer_ = [&](const ChannelRequest&) {
    if (++asked == 1) go_on.get_future().wait();
    return ChannelAnswer();
  };
  const auto quiet = Connect();
  std::array<char, 100> buffer;
  std::size_t count = 0;
  ASSERT_EQ(quiet->Send(FrameOf(GreetingToJson()), Soon()), ChannelWait::kDone);
  ASSERT_EQ(quiet->Receive(buffer, Soon(), count), ChannelWait::kDone);
  const auto hasty = Connect();
  std::string bytes = FrameOf(GreetingToJson());
  for (int i = 0; i < 100; ++i)
    bytes += FrameOf(ToJson(ChannelRequest{}));
  ASSERT_EQ(hasty->Send(bytes, Soon()), ChannelWait::kDone);
  while (asked == 0)
    std::this_thread::yield();
  std::thread end([&] { server_.reset(); });
  EXPECT_EQ(quiet->Receive(buffer, Soon(), count), ChannelWait::kClosed) << "the end has begun";
  go_on.set_value();
  end.join();
  EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace TVK

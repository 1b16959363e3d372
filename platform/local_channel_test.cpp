#include "platform/local_channel.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "platform/local.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

class LocalChannel : public testing::Test {
 protected:
  SteadyTime Soon() const { return runtime_->clock().Steady() + std::chrono::seconds(20); }
  LocalListening Listen() { return ListenLocally(*runtime_, place_, *stop_); }
  std::unique_ptr<LocalConnection> Connect() {
    LocalConnecting connecting = ConnectLocally(*runtime_, place_, nullptr, Soon());
    EXPECT_NE(connecting.connection, nullptr) << connecting.problem;
    return std::move(connecting.connection);
  }
  /// Everything until the other end closes.
  std::string ReceiveAll(LocalConnection& from) {
    std::string all;
    std::array<char, 1000> buffer;
    std::size_t count = 0;
    while (from.Receive(buffer, Soon(), count) == ChannelWait::kDone)
      all.append(buffer.data(), count);
    return all;
  }

  const TempFolder folder_;
  const std::filesystem::path place_ = folder_.path() / "run";
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  const std::unique_ptr<Event> stop_ = runtime_->MakeEvent(EventReset::kManual);
};

TEST_F(LocalChannel, BytesGoBothWaysWhateverTheirNumber) {
  const LocalListening listening = Listen();
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  std::string sent(300'000, ' ');
  for (std::size_t i = 0; i < sent.size(); ++i)
    sent[i] = static_cast<char>(i * 7 + i / 256);
  std::unique_ptr<LocalConnection> client = Connect();  // before anybody accepts it
  const std::unique_ptr<LocalConnection> server = listening.listener->Accept();
  ASSERT_TRUE(client && server);
  std::thread echo([&] {
    std::string back;
    std::array<char, 4096> buffer;
    std::size_t count = 0;
    while (back.size() < sent.size() && server->Receive(buffer, Soon(), count) == ChannelWait::kDone)
      back.append(buffer.data(), count);
    const auto caller = server->Identify();
    EXPECT_TRUE(caller && caller->kind == CallerKind::kOwnAccount && caller->process != 0 && !caller->user.empty());
    EXPECT_EQ(server->Send(back, Soon()), ChannelWait::kDone);
  });
  EXPECT_EQ(client->Send(sent, Soon()), ChannelWait::kDone);
  std::string back;
  std::array<char, 4096> buffer;
  std::size_t count = 0;
  while (back.size() < sent.size() && client->Receive(buffer, Soon(), count) == ChannelWait::kDone)
    back.append(buffer.data(), count);
  echo.join();
  EXPECT_EQ(back, sent);
}

TEST_F(LocalChannel, WaitsEndForTheirReasons) {
  const LocalListening listening = Listen();
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  std::unique_ptr<LocalConnection> client = Connect();
  const std::unique_ptr<LocalConnection> server = listening.listener->Accept();
  std::unique_ptr<LocalConnection> other_client = Connect();
  const std::unique_ptr<LocalConnection> other = listening.listener->Accept();
  ASSERT_TRUE(client && server && other_client && other);
  std::array<char, 8> buffer;
  std::size_t count = 7;
  EXPECT_EQ(server->Receive(buffer, runtime_->clock().Steady(), count), ChannelWait::kTimeout);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(client->Send("last", Soon()), ChannelWait::kDone);
  EXPECT_FALSE(server->HasHungUp());
  client = nullptr;
  EXPECT_EQ(ReceiveAll(*server), "last");
  EXPECT_TRUE(server->HasHungUp());
  EXPECT_EQ(server->Send("nobody is there", Soon()), ChannelWait::kClosed);
  const std::string more_than_fits(8 << 20, 'x');
  EXPECT_EQ(other_client->Send(more_than_fits, runtime_->clock().Steady()), ChannelWait::kTimeout);
  // A wait that has begun, too.
  std::thread waiting([&] { EXPECT_EQ(listening.listener->Accept(), nullptr); });
  stop_->Set();
  waiting.join();
  EXPECT_EQ(other->Send(more_than_fits, SteadyTime::max()), ChannelWait::kStopped);
}

TEST_F(LocalChannel, WhoDiesInTheMiddleEndsTheWaitsOfTheOther) {
  const LocalListening listening = Listen();
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  const std::string more_than_fits(8 << 20, 'x');
  struct Row {
    const char* what;
    bool server_dies;
    bool other_sends;
  };
  for (const auto& [what, server_dies, other_sends] : {Row{"the client, with half a request sent", false, false},
                                                       {"the client, with half an answer taken", false, true},
                                                       {"the server, with half an answer sent", true, false},
                                                       {"the server, with half a request taken", true, true}}) {
    SCOPED_TRACE(what);
    std::unique_ptr<LocalConnection> dies = Connect();
    std::unique_ptr<LocalConnection> stays = listening.listener->Accept();
    ASSERT_TRUE(dies && stays);
    if (server_dies) std::swap(dies, stays);
    ChannelWait end = ChannelWait::kDone;
    std::string came;
    // Without a deadline: nothing else ends it.
    std::thread waiting([&] {
      if (other_sends) {
        end = stays->Send(more_than_fits, SteadyTime::max());
        return;
      }
      std::array<char, 8> buffer;
      std::size_t count = 0;
      while ((end = stays->Receive(buffer, SteadyTime::max(), count)) == ChannelWait::kDone)
        came.append(buffer.data(), count);
    });
    if (other_sends) {
      std::array<char, 8> buffer;
      std::size_t count = 0;
      EXPECT_EQ(dies->Receive(buffer, Soon(), count), ChannelWait::kDone) << "it has begun";
    } else {
      EXPECT_EQ(dies->Send("half", Soon()), ChannelWait::kDone);
    }
    dies = nullptr;
    waiting.join();
    EXPECT_EQ(end, ChannelWait::kClosed);
    EXPECT_EQ(came, other_sends ? "" : "half");
  }
  EXPECT_NE(Connect(), nullptr);
}

TEST_F(LocalChannel, OneListensAndAfterItTheNext) {
  EXPECT_EQ(ConnectLocally(*runtime_, place_, nullptr, Soon()).connection, nullptr);
  for (int life = 0; life < 2; ++life) {
    const LocalListening listening = Listen();
    ASSERT_NE(listening.listener, nullptr) << listening.problem;
#ifndef TVK_UNDER_WINE
    const LocalListening second = Listen();
    EXPECT_EQ(second.listener, nullptr);
    EXPECT_NE(second.problem, "");
#endif
    EXPECT_NE(Connect(), nullptr) << "the first is still there";
  }
}

TEST(LocalCallers, TheFirstThatFitsCounts) {
  EXPECT_EQ(CallerKindOf(true, true, true), CallerKind::kOwnAccount);
  EXPECT_EQ(CallerKindOf(false, true, true), CallerKind::kAdministrator);
  EXPECT_EQ(CallerKindOf(false, false, true), CallerKind::kInteractiveUser);
  EXPECT_EQ(CallerKindOf(false, false, false), CallerKind::kOther);
}

}  // namespace
}  // namespace platform

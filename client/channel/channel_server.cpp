#include "client/channel/channel_server.h"

#include <algorithm>
#include <utility>

#include "client/channel/channel_request.h"
#include "client/log/guarded_thread.h"

namespace TVK {

using platform::ChannelWait;
using platform::LocalCaller;

ChannelServer::ChannelServer(platform::Runtime& runtime, const Log& log, Refusals& refusals, Answerer answerer,
                             ChannelLimits limits, Listening listening)
    : runtime_(runtime),
      log_(log),
      refusals_(refusals),
      answerer_(std::move(answerer)),
      limits_(limits),
      listening_(std::move(listening)),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      ended_(runtime.MakeEvent(platform::EventReset::kAuto)),
      places_(limits.places) {}

ChannelServer::~ChannelServer() {
  stop_->Set();
  if (thread_.joinable()) runtime_.Join(thread_);
  listener_ = nullptr;
  const auto all_ended = [this] {
    const std::lock_guard lock(mutex_);
    return running_ == 0;
  };
  while (!all_ended())
    runtime_.Wait(*ended_, platform::kForever);
  if (finished_.joinable()) runtime_.Join(finished_);
}

std::string ChannelServer::Start(const std::filesystem::path& place, OwnSession own_session) {
  place_ = place;
  own_session_ = std::move(own_session);
  std::string problem = Open();
  thread_ = StartGuardedThread(runtime_, log_, "tvk-channel", [this] { Listen(); });
  return problem;
}

std::string ChannelServer::Open() {
  std::string problem = "there is no memory";
  CallLogged(log_, L"ChannelServer::Open", [&] {
    platform::LocalListening listening = listening_(runtime_, place_, *stop_);
    listener_ = std::move(listening.listener);
    problem = std::move(listening.problem);
  });
  return problem;
}

void ChannelServer::Listen() {
  std::chrono::milliseconds pause = kFirstPause;
  while (!IsStopping()) {
    if (listener_ == nullptr) {
      if (runtime_.Wait(*stop_, pause) == 0) return;
      pause = std::min(pause * 2, kLongestPause);
      if (Open().empty()) log_.d(L"the service can be reached now");
      continue;
    }
    std::unique_ptr<platform::LocalConnection> connection;
    const bool accepted = CallLogged(log_, L"ChannelServer::Accept", [&] { connection = listener_->Accept(); });
    if (connection != nullptr) {
      pause = kFirstPause;
      CallLogged(log_, L"ChannelServer::Admit", [&] { Admit(std::move(connection)); });
    } else if (!IsStopping()) {
      if (accepted) log_.e(L"nobody can reach the service for a while: its end of the local channel failed");
      listener_ = nullptr;
    }
  }
}

std::optional<LocalCaller> ChannelServer::Identify(MessageStream& stream) const {
  std::optional<LocalCaller> caller = stream.Identify();
  if (caller && caller->kind == platform::CallerKind::kOther && own_session_ && own_session_(caller->session)) {
    caller->kind = platform::CallerKind::kInteractiveUser;
  }
  return caller;
}

void ChannelServer::Admit(std::unique_ptr<platform::LocalConnection> connection) {
  auto stream = std::make_shared<MessageStream>(std::move(connection), kLongestGreeting);
  std::optional<LocalCaller> caller = Identify(*stream);
  Place place = Enter(*stream, caller ? &*caller : nullptr);
  if (place == nullptr) return;
  const std::lock_guard lock(mutex_);
  const Conversation conversation = ++last_;
  // Under the lock, so that the thread's end finds its own place filled.
  threads_[conversation] = StartGuardedThread(
      runtime_, log_, "tvk-caller", [this, conversation, stream, caller, place = std::move(place)]() mutable {
        CallLogged(log_, L"ChannelServer::Converse", [&] { Converse(*stream, std::move(caller), std::move(place)); });
        stream = nullptr;  // closed before it is counted as ended
        End(conversation);
      });
  ++running_;
}

void ChannelServer::End(Conversation conversation) {
  std::thread before;
  {
    const std::lock_guard lock(mutex_);
    before = std::exchange(finished_, std::move(threads_.at(conversation)));
    threads_.erase(conversation);
  }
  if (before.joinable()) runtime_.Join(before);
  const std::lock_guard lock(mutex_);
  --running_;
  ended_->Set();
}

ChannelServer::Place ChannelServer::Enter(MessageStream& stream, const LocalCaller* caller) {
  if (caller != nullptr && caller->kind == platform::CallerKind::kOther) {
    Refuse(stream, Refusal::kNotAllowed, caller, "this account is not logged on");
    return nullptr;
  }
  Place place = caller != nullptr ? places_.Take(*caller) : places_.TakeForStranger(stream.ClaimedSession());
  if (place == nullptr) Refuse(stream, Refusal::kNoRoom, caller, "too many connections");
  return place;
}

void ChannelServer::Refuse(MessageStream& stream, Refusal refusal, const LocalCaller* caller, const char* reason) {
  refusals_.Count(refusal, caller, reason);
  const int result = refusal == Refusal::kNoRoom ? kChannelFull : SessionRecorder::kChannelFailed;
  // Without waiting: who floods us need not read it.
  stream.Send(ToJson(ChannelAnswer{result, reason, {}}), runtime_.clock().Steady());
}

void ChannelServer::CountBroken(const MessageStream& stream, ChannelWait wait, const LocalCaller* caller) {
  if (wait == ChannelWait::kStopped) return;
  if (stream.HasBroken()) {
    refusals_.Count(Refusal::kBroken, caller, "bytes that are no message");
  } else if (stream.HoldsPart()) {
    refusals_.Count(Refusal::kBroken, caller, "half a message");
  }
}

std::optional<LocalCaller> ChannelServer::Greet(MessageStream& stream, std::optional<LocalCaller> caller) {
  std::string greeting;
  const ChannelWait wait = stream.Receive(greeting, In(caller ? limits_.patience : limits_.stranger_patience));
  if (!caller) caller = Identify(stream);
  const LocalCaller* const known = caller ? &*caller : nullptr;
  if (wait != ChannelWait::kDone) {
    CountBroken(stream, wait, known);
    return std::nullopt;
  }
  if (known != nullptr && GreetingFromJson(greeting) == kChannelVersion) return caller;
  Refuse(stream, Refusal::kUnknown, known,
         known != nullptr ? "another version than 1" : "the system does not say who calls");
  return std::nullopt;
}

void ChannelServer::Converse(MessageStream& stream, std::optional<LocalCaller> caller, Place place) {
  const bool was_known = caller.has_value();
  caller = Greet(stream, std::move(caller));
  if (!caller) return;
  if (!was_known) {
    place = nullptr;
    place = Enter(stream, &*caller);
    if (place == nullptr) return;
  }
  stream.SetLongest(kLongestRequest);
  ChannelWait wait = stream.Send(GreetingToJson(), In(limits_.patience));
  std::string request;
  bool last = false;
  // What has come already is given before the stop event is looked at: who sends without a pause would hold up the end.
  const platform::SteadyTime end = In(limits_.conversation);
  while (wait == ChannelWait::kDone && !last && !IsStopping() && runtime_.clock().Steady() < end) {
    wait = stream.Receive(request, In(limits_.patience));
    if (wait != ChannelWait::kDone) break;
    const Answer answer = answerer_(*caller, request, [&stream] { return !stream.HasHungUp(); });
    last = answer.last;
    wait = stream.Send(answer.text, In(limits_.patience));
  }
  if (wait != ChannelWait::kDone) CountBroken(stream, wait, &*caller);
}

}  // namespace TVK

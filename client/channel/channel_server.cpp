#include "client/channel/channel_server.h"

#include <utility>

#include "client/channel/channel_request.h"
#include "client/log/guarded_thread.h"

namespace TVK {

using platform::ChannelWait;
using platform::LocalCaller;

ChannelServer::ChannelServer(platform::Runtime& runtime, const Log& log, Refusals& refusals, Answerer answerer,
                             ChannelLimits limits)
    : runtime_(runtime),
      log_(log),
      refusals_(refusals),
      answerer_(std::move(answerer)),
      limits_(limits),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      ended_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

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

std::string ChannelServer::Start(const std::filesystem::path& place) {
  platform::LocalListening listening = platform::ListenLocally(runtime_, place, *stop_);
  if (listening.listener == nullptr) return listening.problem;
  listener_ = std::move(listening.listener);
  thread_ = StartGuardedThread(runtime_, log_, "tvk-channel", [this] { Listen(); });
  return {};
}

void ChannelServer::Listen() {
  while (std::unique_ptr<platform::LocalConnection> connection = listener_->Accept())
    CallLogged(log_, L"ChannelServer::Admit", [&] { Admit(std::move(connection)); });
}

void ChannelServer::Admit(std::unique_ptr<platform::LocalConnection> connection) {
  auto stream = std::make_shared<MessageStream>(std::move(connection), kLongestRequest);
  std::unique_lock lock(mutex_);
  if (running_ >= limits_.connections) {
    lock.unlock();
    refusals_.Count(Refusal::kNoRoom, nullptr, "too many connections");
    Refuse(*stream, "too many connections");
    return;
  }
  const Conversation conversation = ++last_;
  // Under the lock, so that the thread's end finds its own place filled.
  threads_[conversation] = StartGuardedThread(runtime_, log_, "tvk-caller", [this, conversation, stream]() mutable {
    CallLogged(log_, L"ChannelServer::Converse", [&] { Converse(*stream); });
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

bool ChannelServer::TakePlace(const LocalCaller& caller) {
  const std::lock_guard lock(mutex_);
  std::size_t& count = of_user_[caller.user];
  if (count >= limits_.connections_of_user) return false;
  ++count;
  return true;
}

void ChannelServer::LeavePlace(const LocalCaller& caller) {
  const std::lock_guard lock(mutex_);
  const auto place = of_user_.find(caller.user);
  if (--place->second == 0) of_user_.erase(place);
}

void ChannelServer::Refuse(MessageStream& stream, const char* reason) {
  // Without waiting: who floods us need not read it.
  stream.Send(ToJson(ChannelAnswer{SessionRecorder::kChannelFailed, reason, {}}), runtime_.clock().Steady());
}

void ChannelServer::CountBroken(const MessageStream& stream, ChannelWait wait, const LocalCaller* caller) {
  if (wait == ChannelWait::kStopped) return;
  if (stream.HasBroken()) {
    refusals_.Count(Refusal::kBroken, caller, "bytes that are no message");
  } else if (stream.HoldsPart()) {
    refusals_.Count(Refusal::kBroken, caller, "half a message");
  }
}

std::optional<LocalCaller> ChannelServer::Greet(MessageStream& stream) {
  std::string greeting;
  const ChannelWait wait = stream.Receive(greeting, Deadline());
  if (wait != ChannelWait::kDone) {
    CountBroken(stream, wait, nullptr);
    return std::nullopt;
  }
  std::optional<LocalCaller> caller = stream.Identify();
  if (!caller || GreetingFromJson(greeting) != kChannelVersion) {
    const char* const reason = caller ? "another version than 1" : "the system does not say who calls";
    refusals_.Count(Refusal::kUnknown, caller ? &*caller : nullptr, reason);
    Refuse(stream, reason);
    return std::nullopt;
  }
  return caller;
}

void ChannelServer::Converse(MessageStream& stream) {
  const std::optional<LocalCaller> caller = Greet(stream);
  if (!caller) return;
  const bool limited =
      caller->kind == platform::CallerKind::kInteractiveUser || caller->kind == platform::CallerKind::kOther;
  if (limited && !TakePlace(*caller)) {
    refusals_.Count(Refusal::kNoRoom, &*caller, "too many connections of one user");
    return Refuse(stream, "too many connections of this user");
  }
  CallLogged(log_, L"ChannelServer::Answer", [&] {
    ChannelWait wait = stream.Send(GreetingToJson(), Deadline());
    std::string request;
    // What has come already is given before the stop event is looked at: who sends without a pause would hold up the
    // end.
    while (wait == ChannelWait::kDone && !IsStopping()) {
      wait = stream.Receive(request, Deadline());
      if (wait == ChannelWait::kDone) wait = stream.Send(answerer_(*caller, request), Deadline());
    }
    CountBroken(stream, wait, &*caller);
  });
  if (limited) LeavePlace(*caller);
}

}  // namespace TVK

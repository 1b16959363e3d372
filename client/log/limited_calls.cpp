#include "client/log/limited_calls.h"

#include <system_error>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/text/string.h"

namespace TVK {
namespace {

// Waits for `object`, `stop` first, as long as allowed.
LimitedCalls::Outcome Await(platform::Runtime& runtime, platform::Waitable& object, std::chrono::milliseconds limit,
                            platform::Waitable* stop) {
  platform::Waitable* const both[] = {stop, &object};
  const std::span<platform::Waitable* const> waited(both);
  const platform::WaitCode code = runtime.WaitAny(stop == nullptr ? waited.last(1) : waited, limit);
  if (code == platform::kWaitTimeout) return LimitedCalls::Outcome::kTimedOut;
  return stop != nullptr && code == 0 ? LimitedCalls::Outcome::kStopped : LimitedCalls::Outcome::kDone;
}

}  // namespace

LimitedCalls::LimitedCalls(platform::Runtime& runtime, Log log, std::string name)
    : runtime_(runtime), log_(std::move(log)), name_(std::move(name)), turn_(runtime.MakeSemaphore(1, 1)) {}

LimitedCalls::~LimitedCalls() {
  if (!thread_.joinable()) return;
  bool returned = false;
  {
    const std::lock_guard lock(progress_->mutex);
    progress_->done.reset();
    returned = progress_->returned;
  }
  returned ? runtime_.Join(thread_) : thread_.detach();
}

LimitedCalls::Outcome LimitedCalls::Run(std::function<void()> call, std::chrono::milliseconds limit,
                                        platform::Waitable* stop) {
  const Outcome turn = Await(runtime_, *turn_, limit, stop);
  if (turn != Outcome::kDone) return turn == Outcome::kTimedOut ? Outcome::kBusy : turn;
  Outcome outcome = Outcome::kFailed;
  try {
    outcome = RunInTurn(std::move(call), limit, stop);
  } catch (const std::system_error& refusal) {
    log_.e(L"LimitedCalls::Run: %s cannot be started: %s", String::UTF8ToUTF16(name_),
           String::UTF8ToUTF16(refusal.what()));
  }
  turn_->Release(1);
  return outcome;
}

bool LimitedCalls::IsBusy() {
  if (runtime_.Wait(*turn_, std::chrono::milliseconds(0)) == platform::kWaitTimeout) return true;
  bool busy = false;
  if (thread_.joinable()) {
    const std::lock_guard lock(progress_->mutex);
    busy = !progress_->returned;
  }
  turn_->Release(1);
  return busy;
}

LimitedCalls::Outcome LimitedCalls::RunInTurn(std::function<void()> call, std::chrono::milliseconds limit,
                                              platform::Waitable* stop) {
  if (thread_.joinable()) {
    const Outcome before = Await(runtime_, *progress_->done, limit, stop);
    if (before != Outcome::kDone) return before == Outcome::kTimedOut ? Outcome::kBusy : before;
    runtime_.Join(thread_);
  }
  progress_ = std::make_shared<Progress>();
  progress_->done = runtime_.MakeEvent(platform::EventReset::kManual);
  thread_ = runtime_.StartThread(
      name_, [progress = progress_, call = std::move(call), log = log_, name = String::UTF8ToUTF16(name_)]() mutable {
        const bool done = CallLogged(log, name, call);
        call = nullptr;  // what it owns goes before anybody hears that it is through
        const std::lock_guard lock(progress->mutex);
        progress->returned = true;
        progress->failed = !done;
        if (progress->done != nullptr) progress->done->Set();
      });
  const Outcome outcome = Await(runtime_, *progress_->done, limit, stop);
  if (outcome != Outcome::kDone) return outcome;
  runtime_.Join(thread_);
  return progress_->failed ? Outcome::kFailed : outcome;
}

}  // namespace TVK

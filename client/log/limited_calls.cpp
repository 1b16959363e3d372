#include "client/log/limited_calls.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/text/string.h"

namespace TVK {

LimitedCalls::Call::Call(LimitedCalls& calls, std::function<void()> work, std::chrono::milliseconds limit)
    : calls_(&calls), work_(std::move(work)), limit_(limit), deadline_(calls.runtime_.clock().Steady() + limit) {}

LimitedCalls::Outcome LimitedCalls::Call::Await(platform::Waitable* stop) {
  while (progress_ == nullptr && !failed_) {
    const std::shared_ptr<Progress> before = calls_->TryBegin(*this);
    if (before == nullptr) continue;
    const Outcome turn = calls_->Wait(*before->done, deadline_, stop);
    if (turn != Outcome::kDone) return turn == Outcome::kTimedOut ? Outcome::kBusy : turn;
  }
  if (failed_) return Outcome::kFailed;
  const Outcome outcome = calls_->Wait(*progress_->done, deadline_, stop);
  if (outcome != Outcome::kDone) return outcome;
  calls_->Collect(progress_);
  const std::lock_guard lock(progress_->mutex);
  return progress_->failed ? Outcome::kFailed : outcome;
}

LimitedCalls::LimitedCalls(platform::Runtime& runtime, Log log, std::string name)
    : runtime_(runtime), log_(std::move(log)), name_(std::move(name)) {}

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

LimitedCalls::Call LimitedCalls::Begin(std::function<void()> work, std::chrono::milliseconds limit) {
  Call call(*this, std::move(work), limit);
  TryBegin(call);
  return call;
}

bool LimitedCalls::IsBusy() {
  const std::lock_guard lock(mutex_);
  return progress_ != nullptr && !HasReturned(*progress_);
}

bool LimitedCalls::HasReturned(Progress& progress) {
  const std::lock_guard lock(progress.mutex);
  return progress.returned;
}

std::shared_ptr<LimitedCalls::Progress> LimitedCalls::TryBegin(Call& call) {
  const std::lock_guard lock(mutex_);
  if (progress_ != nullptr && !HasReturned(*progress_)) return progress_;
  if (thread_.joinable()) runtime_.Join(thread_);
  progress_.reset();
  try {
    auto progress = std::make_shared<Progress>();
    progress->done = runtime_.MakeEvent(platform::EventReset::kManual);
    thread_ = Start(std::move(call.work_), progress);
    call.deadline_ = runtime_.clock().Steady() + call.limit_;
    call.progress_ = progress_ = std::move(progress);
  } catch (const std::system_error& refusal) {
    call.failed_ = true;
    log_.e(L"LimitedCalls::Begin: %s cannot be started: %s", String::UTF8ToUTF16(name_),
           String::UTF8ToUTF16(refusal.what()));
  }
  return nullptr;
}

std::thread LimitedCalls::Start(std::function<void()> work, std::shared_ptr<Progress> progress) {
  return runtime_.StartThread(
      name_, [progress = std::move(progress), work = std::move(work), log = log_, name = name_]() mutable {
        const bool done = CallLogged(log, name, work);
        work = nullptr;  // what it owns goes before anybody hears that it is through
        const std::lock_guard lock(progress->mutex);
        progress->returned = true;
        progress->failed = !done;
        if (progress->done != nullptr) progress->done->Set();
      });
}

void LimitedCalls::Collect(const std::shared_ptr<Progress>& progress) {
  const std::lock_guard lock(mutex_);
  if (progress_ != progress) return;  // who began the next one did it
  runtime_.Join(thread_);
  progress_.reset();
}

LimitedCalls::Outcome LimitedCalls::Wait(platform::Waitable& object, platform::SteadyTime deadline,
                                         platform::Waitable* stop) {
  platform::Waitable* const both[] = {stop, &object};
  const std::span<platform::Waitable* const> waited(both);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - runtime_.clock().Steady());
  const platform::WaitCode code =
      runtime_.WaitAny(stop == nullptr ? waited.last(1) : waited, std::max(left, std::chrono::milliseconds(0)));
  if (code == platform::kWaitTimeout) return Outcome::kTimedOut;
  return stop != nullptr && code == 0 ? Outcome::kStopped : Outcome::kDone;
}

}  // namespace TVK

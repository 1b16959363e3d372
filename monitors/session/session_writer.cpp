#include "monitors/session/session_writer.h"

#include <algorithm>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "framework/dataset_monitor.h"

namespace TVK {

SessionWriter::SessionWriter(platform::Runtime& runtime)
    : runtime_(runtime),
      news_(runtime.MakeEvent(platform::EventReset::kAuto)),
      closing_(runtime.MakeEvent(platform::EventReset::kManual)) {
  utility::InitLog(log_, ServiceLog(L"SessionWriter.log"), 4);
  thread_ = StartGuardedThread(runtime, log_, "tvk-session", [this] { Run(); });
}

SessionWriter::~SessionWriter() {
  closing_->Set();
  news_->Set();
  runtime_.Join(thread_);
}

void SessionWriter::Post(const std::wstring& dataset, Task task, bool repeatable) {
  {
    const std::lock_guard lock(mutex_);
    const bool full = tasks_.size() >= kMost;
    if (full && !std::exchange(overflows_, true)) {
      log_.e(L"SessionWriter: the service takes nothing; what is seen from now on is lost");
    }
    if (full) return;
    overflows_ = false;
    tasks_.push_back({dataset, std::move(task), repeatable});
  }
  news_->Set();
}

bool SessionWriter::IsClosing() {
  return runtime_.Wait(*closing_, std::chrono::milliseconds(0)) == 0;
}

std::optional<SessionWriter::Entry> SessionWriter::Take(std::chrono::milliseconds& pause) {
  const std::lock_guard lock(mutex_);
  const platform::SteadyTime now = runtime_.clock().Steady();
  std::optional<platform::SteadyTime> due;  // of the first that is held up
  const auto waits = [&](const Entry& entry) {
    const auto held = entry.repeatable ? withheld_.find(entry.dataset) : withheld_.end();
    if (held == withheld_.end() || held->second <= now) return false;
    due = std::min(due.value_or(held->second), held->second);
    return true;
  };
  if (channel_due_ && *channel_due_ <= now) channel_due_.reset();
  due = channel_due_;
  const auto next = channel_due_ ? tasks_.end() : std::find_if_not(tasks_.begin(), tasks_.end(), waits);
  if (next == tasks_.end()) {
    pause = due ? std::chrono::ceil<std::chrono::milliseconds>(*due - now) : platform::kForever;
    return std::nullopt;
  }
  Entry entry = std::move(*next);
  tasks_.erase(next);
  return entry;
}

void SessionWriter::PutBack(Entry entry, int result) {
  const bool withheld = result == DatasetMonitor::kWithheld;
  if (!entry.repeatable || (!withheld && result != SessionRecorder::kChannelFailed)) return;
  entry.withheld += withheld ? 1 : 0;
  if (++entry.tries == kTries || entry.withheld == kWithheldTries) return;
  const platform::SteadyTime due = runtime_.clock().Steady() + kRetry;
  const std::lock_guard lock(mutex_);
  if (withheld) {
    withheld_[entry.dataset] = due;
  } else {
    channel_due_ = due;
  }
  tasks_.push_front(std::move(entry));
}

void SessionWriter::Run() {
  for (;;) {
    const bool closing = IsClosing();  // before the look: nothing is handed over behind it
    std::chrono::milliseconds pause{};
    std::optional<Entry> entry = Take(pause);
    if (!entry) {
      if (closing) return;
      runtime_.Wait(*news_, pause);
      continue;
    }
    int result = SessionRecorder::kChannelFailed;
    CallLogged(log_, L"SessionWriter::Run", [&] { result = entry->task(); });
    if (result == SessionRecorder::kChannelFailed && IsClosing()) return;
    PutBack(std::move(*entry), result);
  }
}

}  // namespace TVK

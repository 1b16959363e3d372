#include "monitors/session/session_writer.h"

#include <utility>

#include "client/log/guarded_thread.h"

namespace TVK {

SessionWriter::SessionWriter(platform::Runtime& runtime)
    : runtime_(runtime),
      news_(runtime.MakeEvent(platform::EventReset::kAuto)),
      closing_(runtime.MakeEvent(platform::EventReset::kManual)) {
  utility::InitLog(log_, L"SessionWriter.log", 4);
  thread_ = StartGuardedThread(runtime, log_, "tvk-session", [this] { Run(); });
}

SessionWriter::~SessionWriter() {
  closing_->Set();
  news_->Set();
  runtime_.Join(thread_);
}

void SessionWriter::Post(Task task, bool repeatable) {
  {
    const std::lock_guard lock(mutex_);
    const bool full = tasks_.size() >= kMost;
    if (full && !std::exchange(overflows_, true)) {
      log_.e(L"SessionWriter: the service takes nothing; what is seen from now on is lost");
    }
    if (full) return;
    overflows_ = false;
    tasks_.push_back({std::move(task), repeatable});
  }
  news_->Set();
}

bool SessionWriter::IsClosing() {
  return runtime_.Wait(*closing_, std::chrono::milliseconds(0)) == 0;
}

int SessionWriter::Try(const Entry& entry) {
  int result = SessionRecorder::kChannelFailed;
  for (int i = 0; i < (entry.repeatable ? kTries : 1) && result == SessionRecorder::kChannelFailed; ++i) {
    if (i != 0 && runtime_.Wait(*closing_, kRetry) == 0) break;
    CallLogged(log_, L"SessionWriter::Run", [&] { result = entry.task(); });
  }
  return result;
}

void SessionWriter::Run() {
  for (;;) {
    Entry entry;
    {
      const std::lock_guard lock(mutex_);
      if (!tasks_.empty()) {
        entry = std::move(tasks_.front());
        tasks_.pop_front();
      }
    }
    if (entry.task) {
      if (Try(entry) == SessionRecorder::kChannelFailed && IsClosing()) return;
    } else if (IsClosing()) {
      return;
    } else {
      runtime_.Wait(*news_, platform::kForever);
    }
  }
}

}  // namespace TVK

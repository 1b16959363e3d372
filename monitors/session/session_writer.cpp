#include "monitors/session/session_writer.h"

#include <utility>

#include "client/log/guarded_thread.h"

namespace TVK {

SessionWriter::SessionWriter(platform::Runtime& runtime)
    : runtime_(runtime), news_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  utility::InitLog(log_, L"SessionWriter.log", 4);
  thread_ = StartGuardedThread(runtime, log_, "tvk-session", [this] { Run(); });
}

SessionWriter::~SessionWriter() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  news_->Set();
  runtime_.Join(thread_);
}

void SessionWriter::Post(Task task) {
  {
    const std::lock_guard lock(mutex_);
    const bool full = tasks_.size() >= kMost;
    if (full && !std::exchange(overflows_, true)) {
      log_.e(L"SessionWriter: the service takes nothing; what is seen from now on is lost");
    }
    if (full) return;
    overflows_ = false;
    tasks_.push_back(std::move(task));
  }
  news_->Set();
}

void SessionWriter::Run() {
  for (;;) {
    Task task;
    bool closing = false;
    {
      const std::lock_guard lock(mutex_);
      closing = closing_;
      if (!tasks_.empty()) {
        task = std::move(tasks_.front());
        tasks_.pop_front();
      }
    }
    if (task) {
      int result = SessionRecorder::kChannelFailed;
      CallLogged(log_, L"SessionWriter::Run", [&] { result = task(); });
      if (closing && result == SessionRecorder::kChannelFailed) return;
    } else if (closing) {
      return;
    } else {
      runtime_.Wait(*news_, platform::kForever);
    }
  }
}

}  // namespace TVK

#include "testing/log_capture.h"

#include <algorithm>
#include <mutex>

// Every log that it opens is itself.
class LogCapture::Backend final : public TVK::LogBackend,
                                  public TVK::LogSink,
                                  public std::enable_shared_from_this<Backend> {
 public:
  std::shared_ptr<TVK::LogSink> Open(const std::wstring& /*file_name*/) override { return shared_from_this(); }
  void Write(TVK::LogSeverity /*severity*/, std::wstring_view message) override {
    const std::lock_guard lock(mutex);
    lines.emplace_back(message);
  }

  std::mutex mutex;  // guards lines
  std::vector<std::wstring> lines;
};

LogCapture::LogCapture() : backend_(std::make_shared<Backend>()) {
  TVK::SetLogBackend(backend_);
}
LogCapture::~LogCapture() {
  TVK::SetLogBackend(nullptr);
}

std::vector<std::wstring> LogCapture::Lines() const {
  const std::lock_guard lock(backend_->mutex);
  return backend_->lines;
}

std::size_t LogCapture::Count(const std::wstring& text) const {
  const std::vector<std::wstring> lines = Lines();
  return static_cast<std::size_t>(
      std::ranges::count_if(lines, [&](const std::wstring& line) { return line.find(text) != std::wstring::npos; }));
}

void LogCapture::Clear() {
  const std::lock_guard lock(backend_->mutex);
  backend_->lines.clear();
}

#include "client/log/last_errors.h"

#include <map>
#include <mutex>
#include <utility>

namespace TVK {

struct LastErrors::Lines {
  void Set(const std::wstring& file_name, std::wstring_view line) {
    constexpr std::size_t kLongest = 400;  // what is remembered of a line
    const std::lock_guard lock(mutex);
    by_log[file_name] = line.substr(0, kLongest);
  }

  std::mutex mutex;  // guards by_log
  std::map<std::wstring, std::wstring> by_log;
};

LastErrors::LastErrors(std::shared_ptr<LogBackend> inner)
    : inner_(std::move(inner)), lines_(std::make_shared<Lines>()) {}
LastErrors::~LastErrors() = default;

std::shared_ptr<LogSink> LastErrors::Open(const std::wstring& file_name) {
  class Sink final : public LogSink {
   public:
    Sink(std::shared_ptr<LogSink> inner, std::shared_ptr<Lines> lines, std::wstring file_name)
        : inner_(std::move(inner)), lines_(std::move(lines)), file_name_(std::move(file_name)) {}
    void Write(LogSeverity severity, std::wstring_view message) override {
      inner_->Write(severity, message);
      if (severity == LogSeverity::kError) lines_->Set(file_name_, message);
    }

   private:
    const std::shared_ptr<LogSink> inner_;
    const std::shared_ptr<Lines> lines_;
    const std::wstring file_name_;
  };
  std::shared_ptr<LogSink> inner = inner_->Open(file_name);
  return inner == nullptr ? nullptr : std::make_shared<Sink>(std::move(inner), lines_, file_name);
}

std::wstring LastErrors::Of(const std::wstring& file_name) const {
  const std::lock_guard lock(lines_->mutex);
  const auto found = lines_->by_log.find(file_name);
  return found == lines_->by_log.end() ? std::wstring() : found->second;
}

}  // namespace TVK

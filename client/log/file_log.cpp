#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <stdexcept>

#include "client/log/log.h"
#include "client/log/loss_counting_sink.h"
#include "client/log/rotating_file.h"
#include "client/text/string.h"
#include "platform/files.h"
#include "platform/standard_error.h"
#include "platform/this_program.h"

namespace TVK {
namespace {

constexpr std::size_t kFileBytes = 5u << 20;
constexpr int kOlderFiles = 4;  // five files in all

spdlog::level::level_enum ToSpdlog(LogSeverity severity) {
  switch (severity) {
    case LogSeverity::kError:
      return spdlog::level::err;
    case LogSeverity::kInfo:
      return spdlog::level::info;
    case LogSeverity::kDebug:
      return spdlog::level::debug;
  }
  return spdlog::level::debug;
}

// A log's file and the form of its lines. One thread at a time.
class LogFile {
 public:
  explicit LogFile(const std::filesystem::path& file) : file_(file, kFileBytes, kOlderFiles) {}

  void Write(LogSeverity severity, const std::string& line) {
    spdlog::memory_buf_t text;
    formatter_.format(spdlog::details::log_msg({}, ToSpdlog(severity), line), text);
    file_.Write(std::string(text.data(), text.size()));
  }

 private:
  RotatingFile file_;
  spdlog::pattern_formatter formatter_;
};

// Ahead of what goes to standard error, which other programs may share.
std::string ProgramMark() {
  return platform::PathToUtf8(platform::ThisProgram().stem()) + ": ";
}

// Error lines that a full disk refuses go to standard error, which a service manager keeps elsewhere.
std::shared_ptr<LogSink> OpenFile(const std::filesystem::path& folder, const std::string& file_name) {
  auto file = std::make_shared<LogFile>(folder / platform::PathFromUtf8(file_name));
  return std::make_shared<LossCountingSink>(
      [file](LogSeverity severity, const std::string& line) { file->Write(severity, line); },
      [file_name](const std::string& line) {
        platform::WriteLineToStandardError({ProgramMark(), file_name, ": ", line});
      });
}

class FileLogBackend final : public LogBackend {
 public:
  explicit FileLogBackend(std::filesystem::path folder) : folder_(std::move(folder)) {}

  std::shared_ptr<LogSink> Open(const std::wstring& file_name) override {
    const std::lock_guard lock(mutex_);
    // One sink a file for as long as anybody uses it: two would rotate under each other.
    if (auto open = sinks_[file_name].lock()) return open;
    try {
      auto sink = OpenFile(folder_, String::UTF16ToUTF8(file_name));
      sinks_[file_name] = sink;
      return sink;
    } catch (const std::runtime_error& failure) {
      if (!complained_) platform::WriteLineToStandardError({ProgramMark(), "cannot write logs: ", failure.what()});
      complained_ = true;
      return nullptr;
    }
  }

 private:
  const std::filesystem::path folder_;
  std::mutex mutex_;  // guards what follows
  std::map<std::wstring, std::weak_ptr<LogSink>> sinks_;
  bool complained_ = false;
};

}  // namespace

std::shared_ptr<LogBackend> MakeFileLogBackend(const std::filesystem::path& folder) {
  return std::make_shared<FileLogBackend>(folder);
}

}  // namespace TVK

#include "client/log/log.h"

#include <exception>
#include <mutex>

#include "platform/standard_error.h"

namespace TVK {
namespace {

struct BackendSlot {
  std::mutex mutex;  // guards backend
  std::shared_ptr<LogBackend> backend;
};

// Never destroyed: threads log until the process ends.
BackendSlot& Slot() {
  static auto* const slot = new BackendSlot;
  return *slot;
}

int LeastLevelFor(LogSeverity severity) {
  switch (severity) {
    case LogSeverity::kError:
      return 1;
    case LogSeverity::kInfo:
      return 2;
    case LogSeverity::kDebug:
      return 4;
  }
  return 4;
}

}  // namespace

void SetLogBackend(std::shared_ptr<LogBackend> backend) {
  const std::lock_guard lock(Slot().mutex);
  Slot().backend = std::move(backend);
}

void Log::Write(LogSeverity severity, const wchar_t* format, std::initializer_list<FormatArgument> args) const {
  if (sink_ == nullptr || level_ < LeastLevelFor(severity)) return;
  try {
    sink_->Write(severity, FormatWideArguments(format, args));
  } catch (const std::exception& failure) {
    // Whoever logs has something else to do, and an exception in its place would be another failure.
    if (severity == LogSeverity::kError) {
      platform::WriteLineToStandardError({"an error could not be logged: ", failure.what()});
    }
  }
}

bool utility::InitLog(Log& log, const std::wstring& file_name, int level) {
  std::shared_ptr<LogBackend> backend;
  {
    const std::lock_guard lock(Slot().mutex);
    backend = Slot().backend;
  }
  log.sink_ = backend == nullptr ? nullptr : backend->Open(file_name);
  log.level_ = level;
  return log.sink_ != nullptr;
}

}  // namespace TVK

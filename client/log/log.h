// The component's logs: one rotating file a module, one line a message.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "client/log/wide_format.h"

namespace TVK {

enum class LogSeverity { kError, kInfo, kDebug };

/// Where the lines of one log go. Any thread may call it.
class LogSink {
 public:
  LogSink() = default;
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  virtual ~LogSink() = default;
  virtual void Write(LogSeverity severity, std::wstring_view message) = 0;
};

/// Opens sinks. The process has one (SetLogBackend); without one, logs stay silent.
class LogBackend {
 public:
  LogBackend() = default;
  LogBackend(const LogBackend&) = delete;
  LogBackend& operator=(const LogBackend&) = delete;
  virtual ~LogBackend() = default;
  /// Null when the log cannot be opened. Opening a name again gives a sink on the same file.
  virtual std::shared_ptr<LogSink> Open(const std::wstring& file_name) = 0;
};

class Log;
namespace utility {

/// Opens `log` on `file_name` (a plain name, "EventManager.log") of the process's backend. `level` is the most that is
/// written: 0 nothing, 1 errors, 2 and 3 errors and information, 4 and above debug lines too.
/// Returns false, and leaves `log` silent, when there is no backend or it cannot open the file.
bool InitLog(Log& log, const std::wstring& file_name, int level);

}  // namespace utility

/// A module's log. Until InitLog has opened it, messages go nowhere. Any thread may write; opening it is for its owner,
/// before others use it. No message throws: one for which there is no memory is lost, an error said on standard error.
class Log {
 public:
  /// Error, debug and information. `format` is a printf format of wide text, checked against the arguments when the
  /// code is compiled; see wide_format.h for what it may hold.
  template <typename... Args>
  void e(CheckedWideFormat<std::type_identity_t<Args>...> format, const Args&... args) const {
    Write(LogSeverity::kError, format.text(), {FormatArgument(args)...});
  }
  template <typename... Args>
  void d(CheckedWideFormat<std::type_identity_t<Args>...> format, const Args&... args) const {
    Write(LogSeverity::kDebug, format.text(), {FormatArgument(args)...});
  }
  template <typename... Args>
  void i(CheckedWideFormat<std::type_identity_t<Args>...> format, const Args&... args) const {
    Write(LogSeverity::kInfo, format.text(), {FormatArgument(args)...});
  }

  bool is_open() const { return sink_ != nullptr; }

 private:
  friend bool utility::InitLog(Log& log, const std::wstring& file_name, int level);
  void Write(LogSeverity severity, const wchar_t* format, std::initializer_list<FormatArgument> args) const;

  std::shared_ptr<LogSink> sink_;
  int level_ = 0;
};

/// Sets the process's backend (null: none). Logs that are open keep the sinks they have. Any thread.
void SetLogBackend(std::shared_ptr<LogBackend> backend);

/// The backend that writes to `folder`: UTF-8 files of at most 5 MiB, four older ones kept beside each ("name.1.log"
/// ...), every line on its way to the system before Write returns. A line that cannot be written is counted, the number
/// stands before the next one that can be, and an error line goes to standard error instead. A folder that cannot be
/// written to gives null sinks and one line on standard error.
std::shared_ptr<LogBackend> MakeFileLogBackend(const std::filesystem::path& folder);

}  // namespace TVK

// The boundary at which an exception becomes a line of a log: of a thread, or of a call into code that may throw.
#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// What a log calls a call that failed. It refers to its texts, which are put together only when the call has failed:
/// no memory is needed, and none can be missing, before.
class CallName {
 public:
  /// "`caller`", or "`caller`: `subject`".
  CallName(const wchar_t* caller, std::wstring_view subject = {}) : caller_(caller), subject_(subject) {}
  CallName(const std::wstring& caller) : caller_(caller) {}
  /// UTF-8.
  CallName(const std::string& thread) : thread_(thread) {}

  /// May throw std::bad_alloc.
  std::wstring Text() const;

 private:
  std::wstring_view caller_;
  std::wstring_view subject_;
  std::string_view thread_;
};

/// What a person is told of `failure`: its text, and of missing memory in words.
const char* FailureText(const std::exception& failure) noexcept;

/// Logs "`name` failed: `reason`" (UTF-8) as an error. Where there is no memory for it standard error says so.
void LogFailure(const Log& log, const CallName& name, std::string_view reason) noexcept;

/// Calls `call`; false when it threw. That is then logged as LogFailure does, with the exception's text ("unknown
/// exception" for one that is no std::exception), and goes no further. Any thread.
template <typename Call>
bool CallLogged(const Log& log, const CallName& name, Call&& call) noexcept {
  try {
    call();
    return true;
  } catch (const std::exception& failure) {
    LogFailure(log, name, failure.what());
  } catch (...) {
    LogFailure(log, name, "unknown exception");
  }
  return false;
}

/// Runtime::StartThread, the one way to start a thread: `body` runs by CallLogged. `name` (UTF-8) is also the thread's.
/// Throws std::system_error when the system gives no thread.
std::thread StartGuardedThread(platform::Runtime& runtime, const Log& log, const std::string& name,
                               std::function<void()> body);

}  // namespace TVK

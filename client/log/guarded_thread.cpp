#include "client/log/guarded_thread.h"

#include <new>

#include "client/text/string.h"
#include "platform/standard_error.h"

namespace TVK {

std::wstring CallName::Text() const {
  if (!thread_.empty()) return String::UTF8ToUTF16(thread_);
  std::wstring text(caller_);
  if (!subject_.empty()) text.append(L": ").append(subject_);
  return text;
}

const char* FailureText(const std::exception& failure) noexcept {
  return dynamic_cast<const std::bad_alloc*>(&failure) != nullptr ? "there is not enough memory" : failure.what();
}

void LogFailure(const Log& log, const CallName& name, std::string_view reason) noexcept {
  try {
    log.e(L"%s failed: %s", name.Text(), String::UTF8ToUTF16(reason));
  } catch (const std::exception&) {
    platform::WriteLineToStandardError({"a failure could not be logged: ", reason});
  }
}

std::thread StartGuardedThread(platform::Runtime& runtime, const Log& log, const std::string& name,
                               std::function<void()> body) {
  return runtime.StartThread(name, [log, name, body = std::move(body)] { CallLogged(log, name, body); });
}

}  // namespace TVK

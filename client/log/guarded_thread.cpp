#include "client/log/guarded_thread.h"

#include <exception>

#include "client/text/string.h"

namespace TVK {

bool CallLogged(const Log& log, const std::wstring& name, const std::function<void()>& call) {
  try {
    call();
    return true;
  } catch (const std::exception& failure) {
    log.e(L"%s failed: %s", name, String::UTF8ToUTF16(failure.what()));
  } catch (...) {
    log.e(L"%s failed: %s", name, L"unknown exception");
  }
  return false;
}

std::thread StartGuardedThread(platform::Runtime& runtime, const Log& log, const std::string& name,
                               std::function<void()> body) {
  return runtime.StartThread(name,
                             [log, name, body = std::move(body)] { CallLogged(log, String::UTF8ToUTF16(name), body); });
}

}  // namespace TVK

#include "client/log/guarded_thread.h"

#include <exception>

#include "client/text/string.h"

namespace TVK {

void CallLogged(const Log& log, const std::string& name, const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& failure) {
    log.e(L"%s: ended by an exception: %s", String::UTF8ToUTF16(name), String::UTF8ToUTF16(failure.what()));
  } catch (...) {
    log.e(L"%s: ended by an exception", String::UTF8ToUTF16(name));
  }
}

std::thread StartGuardedThread(platform::Runtime& runtime, const Log& log, const std::string& name,
                               std::function<void()> body) {
  return runtime.StartThread(name, [log, name, body = std::move(body)] { CallLogged(log, name, body); });
}

}  // namespace TVK

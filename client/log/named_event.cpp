#include "client/log/named_event.h"

namespace TVK {

std::wstring ForeignEventProblem(const std::wstring& name) {
  return L"the event \"" + name +
         L"\" was made by an account that is neither the system, an administrator nor ours, and is not used";
}

platform::NamedEventResult MakeNamedEvent(platform::Runtime& runtime, const Log& log, const std::wstring& name,
                                          platform::EventReset reset, platform::EventAccess access) {
  platform::NamedEventResult made = runtime.MakeNamedEvent(name, reset, false, access);
  if (made.error == platform::kErrorForeignOwner) log.e(L"%s", ForeignEventProblem(name));
  return made;
}

}  // namespace TVK

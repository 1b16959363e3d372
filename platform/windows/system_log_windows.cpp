#include "platform/service_control.h"
#include "platform/system_log.h"
#include "platform/windows/sys.h"
#include "platform/windows/text.h"

namespace platform {

void WriteToSystemLog(SystemLogPriority priority, std::string_view line) {
  const HANDLE log = RegisterEventSourceW(nullptr, kServiceName);
  if (log == nullptr) return;
  const std::wstring text = windows::WideFromUtf8(line);
  const wchar_t* texts[] = {text.c_str()};
  constexpr DWORD kPlainText = 0;  // an event of no message file: the viewer shows the texts as they are
  const WORD type = priority == SystemLogPriority::kError ? EVENTLOG_ERROR_TYPE : EVENTLOG_INFORMATION_TYPE;
  ReportEventW(log, type, 0, kPlainText, nullptr, 1, 0, texts, nullptr);
  DeregisterEventSource(log);
}

std::string SystemLogMark(SystemLogPriority /*priority*/) {
  return {};
}

}  // namespace platform

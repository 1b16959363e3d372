#include "platform/windows/process_list.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/windows/owner.h"
#include "platform/windows/security.h"

#include <tlhelp32.h>
#include <wtsapi32.h>

namespace platform::windows {
namespace {

constexpr std::uint32_t kServicesSession = 0;  // no user has it

bool SameName(std::wstring_view name, const wchar_t* other) {
  return CompareStringOrdinal(name.data(), static_cast<int>(name.size()), other, -1, TRUE) == CSTR_EQUAL;
}

}  // namespace

std::vector<std::uint32_t> ProcessesOf(std::wstring_view program) {
  std::vector<std::uint32_t> processes;
  const UniqueFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return processes;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry)) {
    if (SameName(program, entry.szExeFile)) processes.push_back(entry.th32ProcessID);
  }
  return processes;
}

std::optional<std::uint32_t> SessionOf(std::uint32_t process) {
  // ProcessIdToSessionId would open the process, which not everybody may.
  WTS_PROCESS_INFOW* list = nullptr;
  DWORD size = 0;
  if (!WTSEnumerateProcessesW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &list, &size)) return std::nullopt;
  const std::unique_ptr<WTS_PROCESS_INFOW, decltype(&WTSFreeMemory)> list_owner(list, WTSFreeMemory);
  const auto* const found =
      std::find_if(list, list + size, [&](const WTS_PROCESS_INFOW& entry) { return entry.ProcessId == process; });
  if (found == list + size) return std::nullopt;
  return found->SessionId;
}

ProcessOwner OwnerOfProcess(std::uint32_t process) {
  const UniqueKernelHandle opened(OpenProcess(READ_CONTROL, FALSE, process));
  if (!opened && GetLastError() == ERROR_INVALID_PARAMETER) return {};  // it is gone
  std::string sid = opened ? OwnerSid(opened.get()) : std::string();
  if (sid.empty()) return {.denied = true, .session = SessionOf(process)};
  return {.sid = std::move(sid)};
}

bool MayBeService(const ProcessOwner& owner, const std::string& account, bool denied_may_be) {
  if (owner.denied) return denied_may_be && owner.session.value_or(kServicesSession) == kServicesSession;
  return IsPrivilegedAccount(owner.sid) || (!owner.sid.empty() && owner.sid == account);
}

}  // namespace platform::windows

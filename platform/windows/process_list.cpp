#include "platform/windows/process_list.h"

#include <utility>

#include "platform/windows/owner.h"
#include "platform/windows/security.h"

#include <tlhelp32.h>

namespace platform::windows {
namespace {

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

ProcessOwner OwnerOfProcess(std::uint32_t process) {
  const UniqueKernelHandle opened(OpenProcess(READ_CONTROL, FALSE, process));
  if (!opened) return {.denied = GetLastError() != ERROR_INVALID_PARAMETER};  // which is that of one that is gone
  std::string sid = OwnerSid(opened.get());
  const bool denied = sid.empty();
  return {.sid = std::move(sid), .denied = denied};
}

bool MayBeService(const ProcessOwner& owner, const std::string& account, bool denied_may_be) {
  if (owner.denied) return denied_may_be;
  return IsPrivilegedAccount(owner.sid) || (!owner.sid.empty() && owner.sid == account);
}

}  // namespace platform::windows

#include "windows_kit/other_account_windows.h"

#include <aclapi.h>

#include <array>
#include <cstddef>

#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace windows_kit {
namespace {

using platform::windows::UniqueKernelHandle;
using platform::windows::UniqueLocalMemory;

struct WellKnownSid {
  std::array<std::max_align_t, SECURITY_MAX_SID_SIZE / sizeof(std::max_align_t) + 1> bytes;

  explicit WellKnownSid(WELL_KNOWN_SID_TYPE type) {
    DWORD size = sizeof bytes;
    CreateWellKnownSid(type, nullptr, bytes.data(), &size);
  }
};

// With restricting identifiers access is granted to the user and, once more, to these alone: what the list gives to
// this user by name is lost, what it gives to everybody stays.
UniqueKernelHandle MakeToken() {
  UniqueKernelHandle own;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, own.Receive())) return {};
  WellKnownSid administrators(WinBuiltinAdministratorsSid);
  std::array<WellKnownSid, 4> everybody = {WellKnownSid(WinBuiltinUsersSid), WellKnownSid(WinWorldSid),
                                           WellKnownSid(WinAuthenticatedUserSid), WellKnownSid(WinInteractiveSid)};
  SID_AND_ATTRIBUTES disabled{administrators.bytes.data(), 0};
  std::array<SID_AND_ATTRIBUTES, everybody.size()> restricting{};
  for (std::size_t i = 0; i < everybody.size(); ++i)
    restricting[i].Sid = everybody[i].bytes.data();
  UniqueKernelHandle restricted;
  if (!CreateRestrictedToken(own.get(), DISABLE_MAX_PRIVILEGE, 1, &disabled, 0, nullptr,
                             static_cast<DWORD>(restricting.size()), restricting.data(), restricted.Receive())) {
    return {};
  }
  UniqueKernelHandle token;
  if (!DuplicateTokenEx(restricted.get(), TOKEN_QUERY, nullptr, SecurityIdentification, TokenImpersonation,
                        token.Receive())) {
    return {};
  }
  return token;
}

}  // namespace

std::optional<bool> MayAnotherAccount(HANDLE object, DWORD rights) {
  constexpr SECURITY_INFORMATION kAsked =
      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
  const UniqueKernelHandle token = MakeToken();
  if (!token) return std::nullopt;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error =
      GetSecurityInfo(object, SE_KERNEL_OBJECT, kAsked, nullptr, nullptr, nullptr, nullptr, &descriptor);
  const UniqueLocalMemory owner(descriptor);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return std::nullopt;
  }
  GENERIC_MAPPING no_generic_rights{};
  PRIVILEGE_SET used{};
  DWORD size = sizeof used;
  DWORD granted = 0;
  BOOL may = FALSE;
  if (!AccessCheck(descriptor, token.get(), rights, &no_generic_rights, &used, &size, &granted, &may)) {
    return std::nullopt;
  }
  return may != FALSE;
}

std::string DescribeAccess(std::optional<bool> may) {
  if (!may) return platform::windows::LastErrorText("the system does not say");
  return *may ? "another account may" : "another account may not";
}

}  // namespace windows_kit

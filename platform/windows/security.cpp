#include "platform/windows/security.h"

#include <sddl.h>

#include <array>
#include <cstddef>
#include <vector>

#include "platform/windows/text.h"

namespace platform::windows {

namespace {

constexpr char kSystem[] = "S-1-5-18";              // SECURITY_LOCAL_SYSTEM_RID
constexpr char kAdministrators[] = "S-1-5-32-544";  // DOMAIN_ALIAS_RID_ADMINS

}  // namespace

std::string SidText(PSID sid) {
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) return {};
  const UniqueLocalMemory owner(text);
  return Utf8FromWide(text);
}

std::string UserSid(HANDLE token) {
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  if (size == 0) return {};
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  if (!GetTokenInformation(token, TokenUser, buffer.data(), size, &size)) return {};
  return SidText(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid);
}

std::string ProcessUserSid() {
  UniqueKernelHandle token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive())) return {};
  return UserSid(token.get());
}

bool RunsAsSystem() {
  return ProcessUserSid() == kSystem;
}

bool ActsAsAdministrator() {
  std::array<std::max_align_t, SECURITY_MAX_SID_SIZE / sizeof(std::max_align_t) + 1> administrators;
  DWORD size = sizeof(administrators);
  BOOL member = FALSE;
  return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators.data(), &size) &&
         CheckTokenMembership(nullptr, administrators.data(), &member) && member;
}

std::string OwnerSid(HANDLE object) {
  DWORD size = 0;
  GetKernelObjectSecurity(object, OWNER_SECURITY_INFORMATION, nullptr, 0, &size);
  if (size == 0) return {};
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  PSID owner = nullptr;
  BOOL by_default = FALSE;
  if (!GetKernelObjectSecurity(object, OWNER_SECURITY_INFORMATION, buffer.data(), size, &size) ||
      !GetSecurityDescriptorOwner(buffer.data(), &owner, &by_default) || owner == nullptr) {
    return {};
  }
  return SidText(owner);
}

bool IsTrustedOwner(const std::string& sid) {
  return sid == kSystem || sid == kAdministrators || (!sid.empty() && sid == ProcessUserSid());
}

SecurityAttributes::SecurityAttributes(const std::string& definition) {
  ConvertStringSecurityDescriptorToSecurityDescriptorW(WideFromUtf8(definition).c_str(), SDDL_REVISION_1,
                                                       descriptor_.Receive(), nullptr);
  attributes_ = {sizeof attributes_, descriptor_.get(), FALSE};
}

}  // namespace platform::windows

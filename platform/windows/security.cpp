#include "platform/windows/security.h"

#include <sddl.h>

#include <cstddef>
#include <vector>

#include "platform/windows/text.h"

namespace platform::windows {

namespace {

constexpr char kSystem[] = "S-1-5-18";              // SECURITY_LOCAL_SYSTEM_RID
constexpr char kAdministrators[] = "S-1-5-32-544";  // DOMAIN_ALIAS_RID_ADMINS

// NT SERVICE\TrustedInstaller, to whom the system's own files belong.
constexpr char kTrustedInstaller[] = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

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

bool IsPrivilegedAccount(const std::string& sid) {
  return sid == kSystem || sid == kAdministrators || sid == kTrustedInstaller;
}

bool IsTrustedAccount(const std::string& sid) {
  return IsPrivilegedAccount(sid) || (!sid.empty() && sid == ProcessUserSid());
}

SecurityAttributes::SecurityAttributes(const std::string& definition) {
  ConvertStringSecurityDescriptorToSecurityDescriptorW(WideFromUtf8(definition).c_str(), SDDL_REVISION_1,
                                                       descriptor_.Receive(), nullptr);
  attributes_ = {sizeof attributes_, descriptor_.get(), FALSE};
}

}  // namespace platform::windows

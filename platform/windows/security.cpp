#include "platform/windows/security.h"

#include <sddl.h>

#include <cstddef>
#include <vector>

#include "platform/windows/text.h"

namespace platform::windows {

std::string UserSid(HANDLE token) {
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  if (size == 0) return {};
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  if (!GetTokenInformation(token, TokenUser, buffer.data(), size, &size)) return {};
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &text)) return {};
  const UniqueLocalMemory owner(text);
  return Utf8FromWide(text);
}

std::string ProcessUserSid() {
  UniqueKernelHandle token;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive())) return {};
  return UserSid(token.get());
}

bool RunsAsSystem() {
  return ProcessUserSid() == "S-1-5-18";  // SECURITY_LOCAL_SYSTEM_RID
}

SecurityAttributes::SecurityAttributes(const std::string& definition) {
  ConvertStringSecurityDescriptorToSecurityDescriptorW(WideFromUtf8(definition).c_str(), SDDL_REVISION_1,
                                                       descriptor_.Receive(), nullptr);
  attributes_ = {sizeof attributes_, descriptor_.get(), FALSE};
}

}  // namespace platform::windows

#include "platform/windows/trusted_file.h"

#include "platform/windows/sys.h"

#include <aclapi.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/access_list.h"
#include "platform/windows/owner.h"
#include "platform/windows/security.h"

namespace platform::windows {
namespace {

UniqueFile Open(const std::filesystem::path& path, DWORD flags) {
  return UniqueFile(CreateFileW(path.c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
}

bool BeginsAtADrive(std::wstring_view path) {
  const auto letter = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); };
  return path.size() > 3 && letter(path[0]) && path.substr(1, 2) == L":\\" &&
         path.find(L':', 2) == std::wstring_view::npos;
}

// The path of an opened file without links; empty when it has none on a drive.
std::filesystem::path PathOf(HANDLE file) {
  std::wstring path(MAX_PATH, L'\0');
  DWORD length = 0;
  while ((length = GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()),
                                             FILE_NAME_NORMALIZED | VOLUME_NAME_DOS)) > path.size()) {
    path.resize(length);
  }
  path.resize(length);
  constexpr std::wstring_view kPrefix = LR"(\\?\)";
  if (path.starts_with(kPrefix)) path.erase(0, kPrefix.size());
  return BeginsAtADrive(path) ? std::filesystem::path(path) : std::filesystem::path();
}

AccessEntry EntryOf(const ACE_HEADER& header) {
  // Both have the same layout.
  const auto& ace = reinterpret_cast<const ACCESS_ALLOWED_ACE&>(header);
  const bool inherit_only = (header.AceFlags & INHERIT_ONLY_ACE) != 0;
  if (header.AceType != ACCESS_ALLOWED_ACE_TYPE && header.AceType != ACCESS_DENIED_ACE_TYPE) {
    return {AccessEntry::Kind::kOther, inherit_only};
  }
  return {header.AceType == ACCESS_ALLOWED_ACE_TYPE ? AccessEntry::Kind::kAllow : AccessEntry::Kind::kDeny,
          inherit_only, ace.Mask, SidText(const_cast<DWORD*>(&ace.SidStart))};
}

std::optional<AccessList> AccessListOf(HANDLE object) {
  ACL* list = nullptr;
  PSID owner = nullptr;
  UniqueLocalMemory descriptor;
  if (GetSecurityInfo(object, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, nullptr,
                      &list, nullptr, descriptor.Receive()) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  AccessList access{.owner = owner == nullptr ? std::string() : SidText(owner), .absent = list == nullptr};
  for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
    void* entry = nullptr;
    if (!GetAce(list, i, &entry)) return std::nullopt;
    access.entries.push_back(EntryOf(*static_cast<const ACE_HEADER*>(entry)));
  }
  return access;
}

}  // namespace

std::filesystem::path FindTrustedFile(const std::filesystem::path& path) {
  if (!BeginsAtADrive(path.native())) return {};
  const std::filesystem::path real = PathOf(Open(path, 0).get());
  if (real.empty()) return {};
  std::vector<std::string> trusted;
  if (ActsAsAdministrator()) trusted.push_back(ProcessUserSid());
  PathPart part = PathPart::kFile;
  for (std::filesystem::path at = real;; at = at.parent_path()) {
    const UniqueFile object = Open(at, FILE_FLAG_OPEN_REPARSE_POINT);
    const std::optional<AccessList> access = object ? AccessListOf(object.get()) : std::nullopt;
    if (!access || !OnlyAdministratorsMayChange(*access, part, trusted)) return {};
    if (!at.has_relative_path()) return real;
    part = part == PathPart::kFile ? PathPart::kFolder : PathPart::kFolderAbove;
  }
}

}  // namespace platform::windows

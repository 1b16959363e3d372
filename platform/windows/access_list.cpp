#include "platform/windows/access_list.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "platform/windows/owner.h"
#include "platform/windows/security.h"

#include <aclapi.h>

namespace platform::windows {
namespace {

constexpr char kEveryone[] = "S-1-1-0";

// What is made in a folder is for whoever makes it, and the owner's rights are for the owner: neither lets anybody in
// who is not in otherwise.
constexpr std::string_view kCreatorOwner = "S-1-3-0";
constexpr std::string_view kOwnerRights = "S-1-3-4";

constexpr std::uint32_t kWriting = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA | FILE_WRITE_ATTRIBUTES |
                                   FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;
// To put something else in the place of the object or of what lies in it, or to give oneself the right to.
constexpr std::uint32_t kReplacing = FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;
constexpr std::uint32_t kReading = FILE_READ_DATA | GENERIC_READ | GENERIC_ALL;

bool IsTrusted(const AccessEntry& entry) {
  return entry.trustee == kCreatorOwner || entry.trustee == kOwnerRights || IsTrustedAccount(entry.trustee);
}

// Whether `sid` belongs to an account or a group that somebody made, not to one that every user is in.
bool IsNamedOne(std::string_view sid) {
  if (sid.starts_with("S-1-5-80-") || sid.starts_with("S-1-12-1-")) return true;  // services, accounts of a cloud
  constexpr unsigned long kFirstMade = 1000;  // below: what each machine and domain has, such as "Domain Users"
  return sid.starts_with("S-1-5-21-") && std::strtoul(sid.substr(sid.rfind('-') + 1).data(), nullptr, 10) >= kFirstMade;
}

bool OnlyTrustedHave(std::uint32_t rights, const AccessList& list) {
  return IsTrustedAccount(list.owner) && std::ranges::all_of(list.allowed, [&](const AccessEntry& entry) {
           return !entry.here || (entry.mask & rights) == 0 || IsTrusted(entry);
         });
}

AccessEntry ReadEntry(const ACE_HEADER& header) {
  AccessEntry entry{"?", GENERIC_ALL, (header.AceFlags & INHERIT_ONLY_ACE) == 0};
  // One with a condition begins like one without; that it may not hold does not matter to who could come in.
  if (header.AceType == ACCESS_ALLOWED_ACE_TYPE || header.AceType == ACCESS_ALLOWED_CALLBACK_ACE_TYPE) {
    const auto& allowed = reinterpret_cast<const ACCESS_ALLOWED_ACE&>(header);
    entry.mask = allowed.Mask;
    entry.trustee = SidText(const_cast<DWORD*>(&allowed.SidStart));
  }
  return entry;
}

bool Denies(const ACE_HEADER& header) {
  return header.AceType == ACCESS_DENIED_ACE_TYPE || header.AceType == ACCESS_DENIED_CALLBACK_ACE_TYPE ||
         header.AceType == ACCESS_DENIED_OBJECT_ACE_TYPE || header.AceType == ACCESS_DENIED_CALLBACK_OBJECT_ACE_TYPE;
}

}  // namespace

std::optional<AccessList> ReadAccessList(const std::filesystem::path& path) {
  const UniqueFile opened(CreateFileW(path.c_str(), READ_CONTROL,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!opened) return std::nullopt;
  PSID owner = nullptr;
  PACL entries = nullptr;
  UniqueLocalMemory descriptor;
  const DWORD error =
      GetSecurityInfo(opened.get(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner,
                      nullptr, &entries, nullptr, descriptor.Receive());
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return std::nullopt;
  }
  AccessList list;
  if (owner != nullptr) list.owner = SidText(owner);
  if (entries == nullptr) {
    list.allowed.push_back({kEveryone, GENERIC_ALL, true});
    return list;
  }
  for (DWORD at = 0; at < entries->AceCount; ++at) {
    void* entry = nullptr;
    if (!GetAce(entries, at, &entry)) return std::nullopt;
    const auto& header = *static_cast<const ACE_HEADER*>(entry);
    if (!Denies(header)) list.allowed.push_back(ReadEntry(header));
  }
  return list;
}

bool OnlyTrustedMayWrite(const AccessList& list) {
  return OnlyTrustedHave(kWriting, list);
}

bool OnlyTrustedMayReplace(const AccessList& list) {
  return OnlyTrustedHave(kReplacing, list);
}

bool IsTooOpen(const AccessList& list) {
  return std::ranges::any_of(list.allowed, [](const AccessEntry& entry) {
    const std::uint32_t closed = IsNamedOne(entry.trustee) ? kWriting : kWriting | kReading;
    return (entry.mask & closed) != 0 && !IsTrusted(entry);
  });
}

std::string PrivateFolderList() {
  std::string list = "D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
  if (const std::string own = ProcessUserSid(); !own.empty()) list += "(A;OICI;FA;;;" + own + ")";
  return list;
}

bool MakePrivate(const std::filesystem::path& folder) {
  SecurityAttributes security(PrivateFolderList());
  BOOL present = FALSE;
  BOOL by_default = FALSE;
  PACL entries = nullptr;
  if (!security.ok() ||
      !GetSecurityDescriptorDacl(security.get()->lpSecurityDescriptor, &present, &entries, &by_default)) {
    return false;
  }
  std::wstring name = folder.native();
  constexpr SECURITY_INFORMATION kWhat = DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION;
  if (SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, kWhat, nullptr, nullptr, entries, nullptr) != ERROR_SUCCESS) {
    return false;
  }
  const std::optional<AccessList> list = ReadAccessList(folder);
  return list && !IsTooOpen(*list);
}

}  // namespace platform::windows

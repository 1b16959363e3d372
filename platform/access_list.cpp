#include "platform/access_list.h"

#include <algorithm>
#include <string_view>

namespace platform {
namespace {

constexpr std::string_view kAdministrators[] = {
    "S-1-5-18",      // the system
    "S-1-5-32-544",  // the administrators
    // The account of the system's installer, "NT SERVICE\TrustedInstaller".
    "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
};

// winnt.h
constexpr std::uint32_t kWriteData = 0x2;     // FILE_WRITE_DATA, FILE_ADD_FILE
constexpr std::uint32_t kAppendData = 0x4;    // FILE_APPEND_DATA, FILE_ADD_SUBDIRECTORY
constexpr std::uint32_t kDeleteChild = 0x40;  // FILE_DELETE_CHILD
constexpr std::uint32_t kDelete = 0x10000;
constexpr std::uint32_t kWriteDac = 0x40000;
constexpr std::uint32_t kWriteOwner = 0x80000;
constexpr std::uint32_t kGenericAll = 0x10000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;

// To replace an object, or to give oneself the right to.
constexpr std::uint32_t kReplace = kDelete | kWriteDac | kWriteOwner | kGenericAll;

constexpr std::uint32_t Changes(PathPart part) {
  switch (part) {
    case PathPart::kFile:
      return kReplace | kWriteData | kAppendData | kGenericWrite;
    case PathPart::kFolder:
      return kReplace | kWriteData | kAppendData | kGenericWrite | kDeleteChild;
    default:
      return kReplace | kDeleteChild;
  }
}

}  // namespace

bool OnlyAdministratorsMayChange(const AccessList& list, PathPart part, std::span<const std::string> trusted) {
  const auto relied_on = [&](const std::string& sid) {
    return std::ranges::find(kAdministrators, sid) != std::end(kAdministrators) ||
           std::ranges::find(trusted, sid) != trusted.end();
  };
  // Whoever owns an object may change its list.
  if (list.absent || !relied_on(list.owner)) return false;
  return std::ranges::all_of(list.entries, [&](const AccessEntry& entry) {
    if (entry.inherit_only || entry.kind == AccessEntry::Kind::kDeny || relied_on(entry.sid)) return true;
    return entry.kind == AccessEntry::Kind::kAllow && (entry.mask & Changes(part)) == 0;
  });
}

}  // namespace platform

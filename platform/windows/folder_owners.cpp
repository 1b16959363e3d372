#include "platform/windows/folder_owners.h"

#include <algorithm>
#include <vector>

#include "platform/windows/owner.h"
#include "platform/windows/security.h"

namespace platform::windows {
namespace {

bool SamePath(const std::filesystem::path& a, const std::filesystem::path& b) {
  const auto length = [](const std::filesystem::path& path) { return static_cast<int>(path.native().size()); };
  return CompareStringOrdinal(a.c_str(), length(a), b.c_str(), length(b), TRUE) == CSTR_EQUAL;
}

}  // namespace

std::filesystem::path FindForeignFolder(const std::filesystem::path& folder, const std::filesystem::path& common,
                                        const std::function<std::string(const std::filesystem::path&)>& owner_of) {
  std::vector<std::filesystem::path> way;
  for (std::filesystem::path at = folder; !SamePath(at, common); at = at.parent_path()) {
    way.push_back(at);
    if (at.has_relative_path()) continue;
    way = {folder};
    break;
  }
  const auto foreign = std::ranges::find_if(way, [&](const std::filesystem::path& at) {
    const std::string owner = owner_of(at);
    return !owner.empty() && !IsTrustedAccount(owner);
  });
  return foreign == way.end() ? std::filesystem::path() : *foreign;
}

std::string OwnerOfEntry(const std::filesystem::path& entry) {
  const UniqueFile opened(CreateFileW(entry.c_str(), READ_CONTROL,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!opened) {
    const DWORD error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? "" : "?";
  }
  const std::string owner = OwnerSid(opened.get());
  return owner.empty() ? "?" : owner;
}

}  // namespace platform::windows

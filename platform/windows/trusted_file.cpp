#include "platform/windows/trusted_file.h"

#include "platform/windows/sys.h"

#include <optional>
#include <string>
#include <string_view>

#include "platform/windows/access_list.h"
#include "platform/windows/owner.h"

namespace platform::windows {
namespace {

bool BeginsAtADrive(std::wstring_view path) {
  const auto letter = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); };
  return path.size() > 3 && letter(path[0]) && path.substr(1, 2) == L":\\" &&
         path.find(L':', 2) == std::wstring_view::npos;
}

// Empty when there is no such file, and when its path does not begin at a drive.
std::filesystem::path WithoutLinks(const std::filesystem::path& link) {
  const UniqueFile file(CreateFileW(link.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
  if (!file) return {};
  std::wstring path(MAX_PATH, L'\0');
  DWORD length = 0;
  while ((length = GetFinalPathNameByHandleW(file.get(), path.data(), static_cast<DWORD>(path.size()),
                                             FILE_NAME_NORMALIZED | VOLUME_NAME_DOS)) > path.size()) {
    path.resize(length);
  }
  path.resize(length);
  constexpr std::wstring_view kPrefix = LR"(\\?\)";
  if (path.starts_with(kPrefix)) path.erase(0, kPrefix.size());
  return BeginsAtADrive(path) ? std::filesystem::path(path) : std::filesystem::path();
}

}  // namespace

std::filesystem::path FindTrustedFile(const std::filesystem::path& path) {
  if (!BeginsAtADrive(path.native())) return {};
  const std::filesystem::path file = WithoutLinks(path);
  if (file.empty()) return {};
  const auto holds = [](bool (*verdict)(const AccessList&), const std::filesystem::path& at) {
    const std::optional<AccessList> list = ReadAccessList(at);
    return list && verdict(*list);
  };
  std::filesystem::path at = file.parent_path();
  if (!holds(OnlyTrustedMayWrite, file) || !holds(OnlyTrustedMayWrite, at)) return {};
  while (at.has_relative_path()) {
    at = at.parent_path();
    if (!holds(OnlyTrustedMayReplace, at)) return {};
  }
  return file;
}

}  // namespace platform::windows

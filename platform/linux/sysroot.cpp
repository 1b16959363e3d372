#include "platform/linux/sysroot.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <system_error>

#include "platform/linux/read_file.h"
#include "platform/text_scan.h"

namespace platform {
namespace fs = std::filesystem;

namespace {

struct FolderCloser {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// Calls `call` with the folder's descriptor and each name in it. Not by the standard library's iterator, which ends the
// process where there is no memory.
template <typename Call>
void ForEachEntry(const fs::path& folder, Call call) {
  const std::unique_ptr<DIR, FolderCloser> opened(::opendir(folder.c_str()));
  if (opened == nullptr) return;
  while (const dirent* const entry = ::readdir(opened.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") call(::dirfd(opened.get()), entry->d_name);
  }
}

}  // namespace

fs::path Sysroot::Resolve(const fs::path& inner) const {
  // By the texts: taking paths apart and together again takes longer than many a file takes to read.
  std::string text = root_.native();
  if (!text.empty() && text.back() != '/') text += '/';
  const std::string& rest = inner.native();
  return text.append(rest, std::min(rest.find_first_not_of('/'), rest.size()));
}

std::optional<std::string> Sysroot::Read(const fs::path& inner, int* error) const {
  int code = 0;
  auto text = ReadFileBytes(Resolve(inner), kLimit, code);
  if (!text && error != nullptr) *error = code;
  return text;
}

std::string Sysroot::ReadLine(const fs::path& inner) const {
  const auto text = Read(inner);
  return text ? std::string(TrimBlanks(*text)) : std::string();
}

std::vector<std::uint32_t> Sysroot::NumberedEntries(const fs::path& folder, std::string_view prefix) const {
  std::vector<std::uint32_t> numbers;
  ForEachEntry(Resolve(folder), [&](int, std::string_view name) {
    if (!name.starts_with(prefix)) return;
    const auto number = ParseNumber(name.substr(prefix.size()));
    if (number && *number <= UINT32_MAX) numbers.push_back(static_cast<std::uint32_t>(*number));
  });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::vector<std::string> Sysroot::Names(const fs::path& folder, mode_t type) const {
  std::vector<std::string> names;
  ForEachEntry(Resolve(folder), [&](int descriptor, const char* name) {
    struct stat status = {};
    if (::fstatat(descriptor, name, &status, 0) == 0 && (status.st_mode & S_IFMT) == type) names.emplace_back(name);
  });
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Sysroot::FileNames(const fs::path& folder) const {
  return Names(folder, S_IFREG);
}

std::vector<std::string> Sysroot::FolderNames(const fs::path& folder) const {
  return Names(folder, S_IFDIR);
}

bool Sysroot::IsFolder(const fs::path& inner) const {
  std::error_code failure;
  return fs::is_directory(Resolve(inner), failure);
}

std::string Sysroot::LinkTarget(const fs::path& inner) const {
  std::error_code failure;
  const fs::path target = fs::read_symlink(Resolve(inner), failure);
  return failure ? std::string() : target.string();
}

}  // namespace platform

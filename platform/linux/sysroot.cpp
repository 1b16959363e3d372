#include "platform/linux/sysroot.h"

#include <algorithm>
#include <system_error>

#include "platform/linux/read_file.h"
#include "platform/text_scan.h"

namespace platform {
namespace fs = std::filesystem;

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
  std::error_code failure;
  for (fs::directory_iterator entry(Resolve(folder), failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with(prefix)) continue;
    const auto number = ParseNumber(std::string_view(name).substr(prefix.size()));
    if (number && *number <= UINT32_MAX) numbers.push_back(static_cast<std::uint32_t>(*number));
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::vector<std::string> Sysroot::Names(const fs::path& folder, fs::file_type type) const {
  std::vector<std::string> names;
  std::error_code failure;
  for (fs::directory_iterator entry(Resolve(folder), failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code unreadable;
    if (entry->status(unreadable).type() == type) names.push_back(entry->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Sysroot::FileNames(const fs::path& folder) const {
  return Names(folder, fs::file_type::regular);
}

std::vector<std::string> Sysroot::FolderNames(const fs::path& folder) const {
  return Names(folder, fs::file_type::directory);
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

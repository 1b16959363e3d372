// Programs' libraries that may be loaded into the service.
#pragma once

#include <filesystem>

namespace platform::windows {

/// The path, without links, of the file that `path` leads to ("C:\..."), when nobody but accounts that are trusted
/// (IsTrustedAccount) may change it, what lies beside it, or the way to it. Empty when there is no such file, when
/// anybody else may, and for a path that does not begin at a drive's letter, as the current folder's, a device's or
/// another machine's.
std::filesystem::path FindTrustedFile(const std::filesystem::path& path);

}  // namespace platform::windows

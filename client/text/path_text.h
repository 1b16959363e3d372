#pragma once

#include <filesystem>
#include <string>

namespace TVK {

/// `path` as a log shows it, whatever the process's locale; bytes that are no UTF-8 become U+FFFD. Any thread.
std::wstring WidePath(const std::filesystem::path& path);

}  // namespace TVK

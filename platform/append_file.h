// A file that grows by whole lines, for logs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Open for as long as it lives. One thread at a time.
class AppendFile {
 public:
  AppendFile() = default;
  AppendFile(const AppendFile&) = delete;
  AppendFile& operator=(const AppendFile&) = delete;
  virtual ~AppendFile() = default;

  /// Opens `file`, or makes it. On Linux it is then for the running account alone (mode 0600), whatever the umask and
  /// the mode that it had; on Windows its folder decides. What stands there and is no file of its own (a link, a pipe,
  /// a device) is neither followed nor waited for. Null when it cannot be opened; `problem` then says why and names it.
  static std::unique_ptr<AppendFile> Open(const std::filesystem::path& file, std::string& problem);

  /// Takes everything out of `file`, which whoever has it open goes on with. What stands there and is no file of its
  /// own is left alone, as by Open. An empty text, also when nothing stands there, or what went wrong, naming the file.
  static std::string Empty(const std::filesystem::path& file);

  /// In bytes; 0 when it cannot be told.
  virtual std::uint64_t Size() const = 0;

  /// Adds all of `text`, or nothing of it when the system refuses a part (a disk that is full, a limit of the size),
  /// and hands it to the system before it returns. An empty text, or what went wrong.
  virtual std::string Append(std::string_view text) = 0;
};

}  // namespace platform

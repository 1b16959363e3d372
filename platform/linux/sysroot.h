// The files of the machine below one folder: "/" for this computer, or the recorded tree of another one.
#pragma once

#include <sys/types.h>
#include <cstddef>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Immutable; any thread may call it. Inner paths are written as on the machine itself, with a leading "/". Links
/// inside a recorded tree are followed as the recording made them.
class Sysroot {
 public:
  explicit Sysroot(std::filesystem::path root) : root_(std::move(root)) {}

  /// Where the inner path lies; a leading "/" of it does not lead out of the root.
  std::filesystem::path Resolve(const std::filesystem::path& inner) const;

  /// The text of a file of at most `kLimit` bytes, or nothing; `error`, when given, then receives the errno.
  std::optional<std::string> Read(const std::filesystem::path& inner, int* error = nullptr) const;

  /// The text of a file of one line, blanks at both ends trimmed; empty when there is none.
  std::string ReadLine(const std::filesystem::path& inner) const;

  /// The numbers N for which `folder` holds an entry named `prefix` and N, in rising order.
  std::vector<std::uint32_t> NumberedEntries(const std::filesystem::path& folder, std::string_view prefix) const;

  /// The names of the regular files in `folder`, in order.
  std::vector<std::string> FileNames(const std::filesystem::path& folder) const;

  /// The names of the folders in `folder`, links to folders among them, in order.
  std::vector<std::string> FolderNames(const std::filesystem::path& folder) const;

  /// Whether there is a folder, or a link to one.
  bool IsFolder(const std::filesystem::path& inner) const;

  /// What a symbolic link says; empty when there is none.
  std::string LinkTarget(const std::filesystem::path& inner) const;

  /// /proc/cpuinfo of a computer with a thousand processors takes 2 MiB.
  static constexpr std::size_t kLimit = std::size_t{8} << 20;

 private:
  std::vector<std::string> Names(const std::filesystem::path& folder, mode_t type) const;

  std::filesystem::path root_;
};

}  // namespace platform

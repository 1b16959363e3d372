#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "platform/files.h"
#include "platform/linux/read_file.h"
#include "platform/linux/unique_fd.h"

namespace platform {
namespace {

std::string Describe(std::string_view what, const std::filesystem::path& path, int error) {
  return std::string(what) + " " + PathToUtf8(path) + ": " + std::system_category().message(error);
}

bool WriteAll(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kPrivateFolder = 0750;

mode_t ModeToGive(const std::filesystem::path& file, FileAccess access) {
  if (access == FileAccess::kPrivate) return kPrivateFile;
  struct stat status = {};
  return ::stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0640;
}

std::filesystem::path FolderOf(const std::filesystem::path& file) {
  return file.has_parent_path() ? file.parent_path() : ".";
}

/// What stands before the six characters that make the name of a temporary file.
std::string TemporaryBegin(const std::filesystem::path& file) {
  return "." + file.filename().string() + ".";
}

/// Makes a temporary file beside `file`, `name`; its lock tells RemoveLeftovers that somebody is at it. Empty, with
/// errno, when it cannot be made.
UniqueFd MakeTemporary(const std::filesystem::path& file, std::string& name) {
  for (;;) {
    name = (FolderOf(file) / (TemporaryBegin(file) + "XXXXXX")).string();
    UniqueFd made(::mkostemp(name.data(), O_CLOEXEC));
    if (!made) return made;
    ::flock(made.get(), LOCK_EX);
    struct stat status = {};
    // Before it was locked it could be taken for a leftover.
    if (::fstat(made.get(), &status) != 0 || status.st_nlink > 0) return made;
  }
}

/// Writes `content` to the fresh file behind `descriptor` down to the disk. Returns 0 or errno.
int FillTemporary(int descriptor, std::string_view content, mode_t mode) {
  if (!WriteAll(descriptor, content) || ::fchmod(descriptor, mode) != 0 || ::fsync(descriptor) != 0) return errno;
  return 0;
}

}  // namespace

std::optional<std::string> ReadFileBytes(const std::filesystem::path& file, std::size_t limit, int& error) {
  // A pipe or a device of that name must not make anybody wait for its other end.
  const UniqueFd descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct stat status = {};
  if (!descriptor || ::fstat(descriptor.get(), &status) != 0) {
    error = errno;
    return std::nullopt;
  }
  if (S_ISFIFO(status.st_mode)) {
    error = ENXIO;  // as opening a socket gives
    return std::nullopt;
  }
  std::string bytes;
  std::array<char, 8192> block;
  while (true) {
    const ssize_t count = ::read(descriptor.get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      error = errno;
      return std::nullopt;
    }
    if (count == 0) return bytes;
    if (static_cast<std::size_t>(count) > limit - bytes.size()) {
      error = EFBIG;
      return std::nullopt;
    }
    bytes.append(block.data(), static_cast<std::size_t>(count));
  }
}

std::optional<std::string> ReadWholeFile(const std::filesystem::path& file, std::size_t limit, FileProblem* problem) {
  int error = 0;
  auto bytes = ReadFileBytes(file, limit, error);
  if (bytes || problem == nullptr) return bytes;
  switch (error) {
    case EFBIG:
      *problem = {FileFault::kUnsuitable, PathToUtf8(file) + " is longer than " + std::to_string(limit) + " bytes"};
      break;
    case ENXIO:
      *problem = {FileFault::kUnsuitable, PathToUtf8(file) + " is a pipe, a socket or a missing device, no file"};
      break;
    case EISDIR:
      *problem = {FileFault::kUnsuitable, Describe("cannot read", file, error)};
      break;
    case ENOENT:
    case ENOTDIR:
      *problem = {FileFault::kAbsent, Describe("cannot read", file, error)};
      break;
    default:
      *problem = {FileFault::kUnreadable, Describe("cannot read", file, error)};
  }
  return bytes;
}

std::string MakePrivateFolder(const std::filesystem::path& folder) {
  std::error_code failure;
  if (const auto parent = folder.parent_path(); !parent.empty()) {
    std::filesystem::create_directories(parent, failure);
    if (failure) return Describe("cannot make the folder", parent, failure.value());
  }
  if (::mkdir(folder.c_str(), kPrivateFolder) == 0) {
    // The account's umask may have taken permissions away; what stands is to be the same on every machine.
    if (::chmod(folder.c_str(), kPrivateFolder) == 0) return {};
    return Describe("cannot set the permissions of", folder, errno);
  }
  const int error = errno;
  if (std::filesystem::is_directory(folder, failure)) {
    if (::access(folder.c_str(), W_OK | X_OK) == 0) return {};
    return Describe("cannot write in the folder", folder, errno);
  }
  return Describe("cannot make the folder", folder, error);
}

std::string CloseFolder(const std::filesystem::path& folder,
                        const std::function<bool(const std::string& name)>& is_ours) {
  struct stat status = {};
  if (::stat(folder.c_str(), &status) != 0 || (status.st_mode & 07777 & ~kPrivateFolder) == 0) return {};
  // One with the sticky bit, like /tmp, is there for everybody, even while nobody keeps anything in it.
  bool alone = status.st_uid == ::geteuid() && (status.st_mode & S_ISVTX) == 0;
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; alone && !failure && entry != end;
       entry.increment(failure))
    alone = is_ours(entry->path().filename().string());
  std::ostringstream open;
  open << "the folder " << PathToUtf8(folder) << " was open to other accounts (mode 0" << std::oct
       << (status.st_mode & 07777) << "); ";
  if (alone && !failure && ::chmod(folder.c_str(), kPrivateFolder) == 0) return open.str() + "it is closed now";
  return open.str() + "it stays so, since it is not the service's alone; the files of the service in it are closed";
}

std::filesystem::path FindForeignFile(const std::filesystem::path& folder,
                                      const std::function<bool(const std::string& name)>& is_ours) {
  struct stat status = {};
  if (::stat(folder.c_str(), &status) != 0) return {};
  const uid_t owner = status.st_uid;
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (!is_ours(entry->path().filename().string()) || ::lstat(entry->path().c_str(), &status) != 0) continue;
    if (status.st_uid != ::geteuid() && status.st_uid != 0 && status.st_uid != owner) return entry->path();
  }
  return {};
}

std::string WarnOfWriters(const std::filesystem::path& folder) {
  struct stat status = {};
  if (::stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IWOTH) == 0) return {};
  return "other accounts may write in the folder " + PathToUtf8(folder);
}

void CloseFile(const std::filesystem::path& file) {
  struct stat status = {};
  if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if ((status.st_mode & 07777) != kPrivateFile) static_cast<void>(::chmod(file.c_str(), kPrivateFile));
}

std::string MakePrivateFile(const std::filesystem::path& file) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
  const UniqueFd made(::open(file.c_str(), kFlags, kPrivateFile));
  const int error = made ? 0 : errno;
  CloseFile(file);
  return error == 0 || error == EEXIST ? std::string() : Describe("cannot make", file, error);
}

std::string ReplaceFile(const std::filesystem::path& file, std::string_view content, FileAccess access) {
  const std::filesystem::path folder = FolderOf(file);
  const UniqueFd folder_descriptor(::open(folder.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY));
  if (!folder_descriptor) return Describe("cannot open the folder", folder, errno);

  std::string temporary;
  const UniqueFd descriptor = MakeTemporary(file, temporary);
  if (!descriptor) return Describe("cannot write beside", file, errno);
  int error = FillTemporary(descriptor.get(), content, ModeToGive(file, access));
  if (error == 0 && ::rename(temporary.c_str(), file.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temporary.c_str());
    return Describe("cannot write", file, error);
  }
  // Some file systems (EINVAL) know no flush of a folder. Where it fails otherwise the new content is in place for
  // every reader, and only the loss of power could still bring back the old: the caller has what it asked for.
  ::fsync(folder_descriptor.get());
  return {};
}

std::string ProbeReplaceFile(const std::filesystem::path& file) {
  std::string temporary;
  if (!MakeTemporary(file, temporary)) return Describe("cannot write beside", file, errno);
  ::unlink(temporary.c_str());
  return {};
}

void RemoveLeftovers(const std::filesystem::path& file) {
  const std::string begin = TemporaryBegin(file);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(FolderOf(file), error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with(begin) || name.size() != begin.size() + 6) continue;
    const UniqueFd left(::open(entry->path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (left && ::flock(left.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(entry->path().c_str());
  }
}

std::filesystem::path PathFromUtf8(std::string_view text) {
  return {text};
}

std::string PathToUtf8(const std::filesystem::path& path) {
  return path.string();
}

DefaultPlaces GetDefaultPlaces() {
  return {.policy_file = "/etc/tvk/policy.json",
          .data_folder = "/var/lib/tvk",
          .log_folder = "/var/log/tvk",
          .named_event_folder = "/run/tvk"};
}

}  // namespace platform

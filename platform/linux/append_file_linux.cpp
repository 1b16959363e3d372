#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/append_file.h"
#include "platform/files.h"
#include "platform/linux/unique_fd.h"

namespace platform {
namespace {

std::string ErrorText(int error) {
  return std::system_category().message(error);
}

class AppendFileLinux final : public AppendFile {
 public:
  explicit AppendFileLinux(UniqueFd fd) : fd_(std::move(fd)) {}

  std::uint64_t Size() const override {
    struct stat status = {};
    return ::fstat(fd_.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  std::string Append(std::string_view text) override {
    std::size_t done = 0;
    while (done < text.size()) {
      const ssize_t written = ::write(fd_.get(), text.data() + done, text.size() - done);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) {
        const int error = errno;
        TakeBack(done);
        return ErrorText(error);
      }
      done += static_cast<std::size_t>(written);
    }
    return {};
  }

 private:
  // Cuts the file by its last `count` bytes, which this object wrote, unless somebody wrote behind them.
  void TakeBack(std::size_t count) {
    const off_t end = ::lseek(fd_.get(), 0, SEEK_CUR);
    if (count == 0 || end < 0 || static_cast<std::uint64_t>(end) != Size()) return;
    // Where that fails too, the beginning of a line stands there.
    [[maybe_unused]] const int result = ::ftruncate(fd_.get(), end - static_cast<off_t>(count));
  }

  const UniqueFd fd_;
};

constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

/// Open for writing at its end, with `flags` besides, and a file of its own; `status` is the file's. Else `problem`
/// says why not.
UniqueFd OpenOwn(const std::filesystem::path& file, int flags, struct stat& status, std::string& problem) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd(::open(file.c_str(), kFlags | flags, kPrivate));
  if (!fd || ::fstat(fd.get(), &status) != 0) {
    problem = PathToUtf8(file) + ": " + (errno == ELOOP ? "it is a symbolic link" : ErrorText(errno));
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    problem = PathToUtf8(file) + ": it is a pipe or a device, no file";
    return {};
  }
  if (status.st_nlink > 1) {
    problem = PathToUtf8(file) + ": the file has another name elsewhere";
    return {};
  }
  return fd;
}

}  // namespace

std::unique_ptr<AppendFile> AppendFile::Open(const std::filesystem::path& file, std::string& problem) {
  struct stat status = {};
  UniqueFd fd = OpenOwn(file, O_CREAT, status, problem);
  if (!fd) return nullptr;
  // One that belongs to another account stays as that one made it; the folder is what keeps others out.
  if ((status.st_mode & 07777) != kPrivate) static_cast<void>(::fchmod(fd.get(), kPrivate));
  return std::make_unique<AppendFileLinux>(std::move(fd));
}

std::string AppendFile::Empty(const std::filesystem::path& file) {
  std::error_code ignored;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file, ignored))) return {};
  std::string problem;
  struct stat status = {};
  const UniqueFd fd = OpenOwn(file, 0, status, problem);
  if (!fd) return problem;
  return ::ftruncate(fd.get(), 0) == 0 ? std::string() : PathToUtf8(file) + ": " + ErrorText(errno);
}

}  // namespace platform

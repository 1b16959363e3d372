#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string>
#include <system_error>

#include "platform/linux/fd_event_linux.h"

namespace platform {
namespace {

constexpr mode_t kManualResetMark = S_IXUSR;

NamedEventResult Failure(int error) {
  return {nullptr, static_cast<std::uint32_t>(error)};
}

/// A file name for `name`: letters, digits, '-' and '_' stay, everything else becomes its number. No two names share a
/// file, and none begins with a dot.
std::string FileName(std::wstring_view name) {
  std::string file;
  for (const wchar_t character : name) {
    const auto code = std::char_traits<wchar_t>::to_int_type(character);
    const bool plain = (code >= '0' && code <= '9') || (code >= 'A' && code <= 'Z') || (code >= 'a' && code <= 'z') ||
                       code == '-' || code == '_';
    if (plain) {
      file += static_cast<char>(code);
      continue;
    }
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.begin(), digits.end(), code, 16).ptr;
    file.append("%").append(digits.begin(), end).append(".");
  }
  return file;
}

/// Whether nobody planted the FIFO: it belongs to this account, to the administrator or to whom the folder belongs.
bool IsTrusted(const struct stat& fifo, const std::filesystem::path& file) {
  struct stat folder {};
  return fifo.st_uid == ::geteuid() || fifo.st_uid == 0 ||
         (::stat(file.parent_path().c_str(), &folder) == 0 && fifo.st_uid == folder.st_uid);
}

/// Opens the FIFO `file` for waiting and signalling. On failure `fd` is empty and `error` holds the number.
struct OpenedFifo {
  UniqueFd fd;
  mode_t mode = 0;
  int error = 0;
};
OpenedFifo OpenFifo(const std::filesystem::path& file) {
  OpenedFifo opened;
  opened.fd = UniqueFd(::open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  struct stat status {};
  if (!opened.fd || ::fstat(opened.fd.get(), &status) != 0) return {UniqueFd(), 0, errno};
  if (!S_ISFIFO(status.st_mode)) return {UniqueFd(), 0, EEXIST};
  if (!IsTrusted(status, file)) return {UniqueFd(), 0, static_cast<int>(kErrorForeignOwner)};
  opened.mode = status.st_mode;
  return opened;
}

/// 0 when some process holds the event of `file`; ENOENT when none does; another number when it cannot be told.
int FindHolder(const std::filesystem::path& file) {
  const UniqueFd writer(::open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (writer) return 0;
  return errno == ENXIO ? ENOENT : errno;
}

NamedEventResult OpenHeld(const std::filesystem::path& file) {
  if (const int error = FindHolder(file); error != 0) return Failure(error);
  OpenedFifo fifo = OpenFifo(file);
  if (!fifo.fd) return Failure(fifo.error);
  const EventReset reset = (fifo.mode & kManualResetMark) != 0 ? EventReset::kManual : EventReset::kAuto;
  return {std::make_unique<FdEvent>(std::move(fifo.fd), FdEvent::Kind::kFifo, reset), 0};
}

/// Makes `folder` if it is missing, for this account to make events in and for everybody to find them in.
int MakeFolder(const std::filesystem::path& folder) {
  std::error_code error;
  if (std::filesystem::create_directories(folder, error)) {
    using std::filesystem::perms;
    const perms everybody = perms::group_read | perms::group_exec | perms::others_read | perms::others_exec;
    std::filesystem::permissions(folder, perms::owner_all | everybody, error);
  }
  return error.value();
}

}  // namespace

NamedEventResult NamedEventFolder::Open(std::wstring_view name) const {
  if (name.empty()) return Failure(EINVAL);
  return OpenHeld(folder_ / FileName(name));
}

NamedEventResult NamedEventFolder::Make(std::wstring_view name, EventReset reset, bool signalled,
                                        EventAccess access) const {
  if (name.empty()) return Failure(EINVAL);
  const std::filesystem::path file = folder_ / FileName(name);
  // An account that may use the event need not be allowed to make events: it never comes to the lock.
  NamedEventResult held = OpenHeld(file);
  if (held.event != nullptr || held.error != ENOENT) return held;

  if (const int error = MakeFolder(folder_); error != 0) return Failure(error);
  // Held while the event is made: of two makers, one makes it and the other finds it made.
  const UniqueFd lock(
      ::open((folder_ / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
  if (!lock) return Failure(errno);
  while (::flock(lock.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return Failure(errno);
  }
  held = OpenHeld(file);
  if (held.event != nullptr || held.error != ENOENT) return held;

  if (::mkfifo(file.c_str(), S_IRUSR | S_IWUSR) != 0 && errno != EEXIST) return Failure(errno);
  OpenedFifo fifo = OpenFifo(file);
  if (!fifo.fd) return Failure(fifo.error);
  mode_t mode = S_IRUSR | S_IWUSR;
  if (access == EventAccess::kSessionUsers) mode |= S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
  if (reset == EventReset::kManual) mode |= kManualResetMark;
  // Here and not in mkfifo: the umask must not narrow it, and the file may be left from an event of another kind.
  if (::fchmod(fifo.fd.get(), mode) != 0) return Failure(errno);
  auto event = std::make_unique<FdEvent>(std::move(fifo.fd), FdEvent::Kind::kFifo, reset);
  if (signalled) event->Set();
  return {std::move(event), 0};
}

}  // namespace platform

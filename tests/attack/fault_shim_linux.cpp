// A library that is loaded ahead of the C library (LD_PRELOAD) and lets calls on files below a folder fail, or ends the
// process at them. Told by the environment:
//
//   TVK_FAULT_ROOT=FOLDER        only calls on files below it count
//   TVK_FAULT=CALL:ACTION:N      the N-th such call (from 1): CALL is open, read, write, sync, rename, truncate or
//                                remove; ACTION an errno (EIO, ENOSPC, EMFILE, EINTR) or kill, which writes half of
//                                what a write was given first. N is 0: every such call while TVK_FAULT_SWITCH is there
//   TVK_FAULT_FROM=FILE          calls count from when it exists; without it from the begin
//   TVK_FAULT_MARK=FILE          made when such a call was reached
//   TVK_FAULT_SWITCH=FILE        a file that exists or does not
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

enum class Call { kOpen, kRead, kWrite, kSync, kRename, kTruncate, kRemove, kNone };

struct Fault {
  Call call = Call::kNone;
  int error = 0;  ///< 0: kill.
  long nth = 0;
};

std::string_view Variable(const char* name) {
  const char* const value = ::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

Fault ReadFault() {
  constexpr std::pair<std::string_view, Call> kCalls[] = {
      {"open:", Call::kOpen},     {"read:", Call::kRead},         {"write:", Call::kWrite},  {"sync:", Call::kSync},
      {"rename:", Call::kRename}, {"truncate:", Call::kTruncate}, {"remove:", Call::kRemove}};
  constexpr std::pair<std::string_view, int> kActions[] = {
      {"kill:", 0}, {"EIO:", EIO}, {"ENOSPC:", ENOSPC}, {"EMFILE:", EMFILE}, {"EINTR:", EINTR}};
  std::string_view text = Variable("TVK_FAULT");
  Fault fault;
  for (const auto& [name, call] : kCalls) {
    if (text.starts_with(name)) fault.call = call, text.remove_prefix(name.size());
  }
  for (const auto& [name, error] : kActions) {
    if (text.starts_with(name)) fault.error = error, text.remove_prefix(name.size());
  }
  fault.nth = std::strtol(text.data() == nullptr ? "0" : text.data(), nullptr, 10);
  return fault;
}

const Fault& TheFault() {
  static const Fault fault = ReadFault();
  return fault;
}

bool IsBelowRoot(std::string_view path) {
  static const std::string_view root = Variable("TVK_FAULT_ROOT");
  return !root.empty() && path.starts_with(root);
}

bool IsBelowRoot(int fd) {
  char name[64];
  char path[4096];
  std::strcpy(name, "/proc/self/fd/");
  char* end = name + std::strlen(name);
  char digits[16];
  int count = 0;
  for (int left = fd; left > 0 || count == 0; left /= 10)
    digits[count++] = static_cast<char>('0' + left % 10);
  while (count > 0)
    *end++ = digits[--count];
  *end = 0;
  const long size = ::syscall(SYS_readlinkat, AT_FDCWD, name, path, sizeof path);
  return size > 0 && IsBelowRoot(std::string_view(path, static_cast<std::size_t>(size)));
}

bool Exists(const char* file) {
  return ::syscall(SYS_faccessat, AT_FDCWD, file, F_OK) == 0;
}

bool IsSwitchedOn() {
  static const char* const file = ::getenv("TVK_FAULT_SWITCH");
  return file != nullptr && Exists(file);
}

bool HaveBegun() {
  static const char* const file = ::getenv("TVK_FAULT_FROM");
  return file == nullptr || Exists(file);
}

// Whether the call that is about to be made is the one that was named.
bool IsDue(Call call) {
  static std::atomic<long> made = 0;
  if (call != TheFault().call || !HaveBegun()) return false;
  if (TheFault().nth == 0 ? !IsSwitchedOn() : ++made != TheFault().nth) return false;
  if (const char* const mark = ::getenv("TVK_FAULT_MARK")) {
    const long fd = ::syscall(SYS_openat, AT_FDCWD, mark, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    if (fd >= 0) ::syscall(SYS_close, fd);
  }
  return true;
}

[[noreturn]] void Kill() {
  ::syscall(SYS_kill, ::getpid(), SIGKILL);
  for (;;)
    ::syscall(SYS_pause);
}

// Fails the call, or ends the process.
int Fail() {
  if (TheFault().error == 0) Kill();
  errno = TheFault().error;
  return -1;
}

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

ssize_t Write(int fd, const void* data, std::size_t size, off64_t offset) {
  const auto write = [&](std::size_t count) {
    return offset < 0 ? ::syscall(SYS_write, fd, data, count) : ::syscall(SYS_pwrite64, fd, data, count, offset);
  };
  if (IsBelowRoot(fd) && IsDue(Call::kWrite)) {
    if (TheFault().error == 0) write(size / 2);
    return Fail();
  }
  return write(size);
}

int Open(const char* path, int flags, mode_t mode) {
  if (IsBelowRoot(path) && IsDue(Call::kOpen)) return Fail();
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

mode_t ModeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  return Open(path, flags, mode);
}
__attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  return Open(path, flags, mode);
}
__attribute__((visibility("default"))) ssize_t read(int fd, void* buffer, size_t size) {
  if (IsBelowRoot(fd) && IsDue(Call::kRead)) return Fail();
  return ::syscall(SYS_read, fd, buffer, size);
}
__attribute__((visibility("default"))) ssize_t pread64(int fd, void* buffer, size_t size, off64_t offset) {
  if (IsBelowRoot(fd) && IsDue(Call::kRead)) return Fail();
  return ::syscall(SYS_pread64, fd, buffer, size, offset);
}
__attribute__((visibility("default"))) ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
  return pread64(fd, buffer, size, offset);
}
__attribute__((visibility("default"))) ssize_t write(int fd, const void* data, size_t size) {
  return Write(fd, data, size, -1);
}
__attribute__((visibility("default"))) ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
  return Write(fd, data, size, offset);
}
__attribute__((visibility("default"))) ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
  return Write(fd, data, size, offset);
}
__attribute__((visibility("default"))) int fsync(int fd) {
  if (IsBelowRoot(fd) && IsDue(Call::kSync)) return Fail();
  return static_cast<int>(::syscall(SYS_fsync, fd));
}
__attribute__((visibility("default"))) int fdatasync(int fd) {
  if (IsBelowRoot(fd) && IsDue(Call::kSync)) return Fail();
  return static_cast<int>(::syscall(SYS_fdatasync, fd));
}
__attribute__((visibility("default"))) int rename(const char* from, const char* to) {
  if (IsBelowRoot(to) && IsDue(Call::kRename)) return Fail();
  static auto* const next = Next<int(const char*, const char*)>("rename");
  return next(from, to);
}
__attribute__((visibility("default"))) int ftruncate64(int fd, off64_t size) {
  if (IsBelowRoot(fd) && IsDue(Call::kTruncate)) return Fail();
  return static_cast<int>(::syscall(SYS_ftruncate, fd, size));
}
__attribute__((visibility("default"))) int ftruncate(int fd, off_t size) {
  return ftruncate64(fd, size);
}
__attribute__((visibility("default"))) int unlink(const char* path) {
  if (IsBelowRoot(path) && IsDue(Call::kRemove)) return Fail();
  return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}
__attribute__((visibility("default"))) int remove(const char* path) {
  if (IsBelowRoot(path) && IsDue(Call::kRemove)) return Fail();
  static auto* const next = Next<int(const char*)>("remove");
  return next(path);
}

}  // extern "C"

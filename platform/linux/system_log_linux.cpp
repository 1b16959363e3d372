#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/linux/unique_fd.h"
#include "platform/system_log.h"

namespace platform {
namespace {

// Facility and severities as a syslog message begins with them (RFC 3164, 4.1.1).
constexpr int kDaemon = 3 * 8;
constexpr int SeverityOf(SystemLogPriority priority) {
  return priority == SystemLogPriority::kError ? 3 : 5;
}

// The journal names the stream that it reads in the environment, as device and inode (systemd.exec(5)).
bool JournalReadsStandardError() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat status = {};
  return stream != nullptr && ::fstat(STDERR_FILENO, &status) == 0 &&
         std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

}  // namespace

void WriteToSystemLog(SystemLogPriority priority, std::string_view line) {
  if (JournalReadsStandardError()) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  std::string message =
      "<" + std::to_string(kDaemon + SeverityOf(priority)) + ">TVKClientService[" + std::to_string(::getpid()) + "]: ";
  message += line;
  // A system without the log, or one that is too busy: the line stands on standard error as well.
  static_cast<void>(::sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

std::string SystemLogMark(SystemLogPriority priority) {
  return JournalReadsStandardError() ? "<" + std::to_string(SeverityOf(priority)) + ">" : "";
}

}  // namespace platform

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <string>

#include "platform/linux/read_file.h"
#include "platform/process_usage.h"

namespace platform {

ProcessUsage ReadProcessUsage() {
  ProcessUsage usage;
  rusage used{};
  if (::getrusage(RUSAGE_SELF, &used) == 0) {
    const auto time = [](const timeval& value) {
      return std::chrono::seconds(value.tv_sec) + std::chrono::microseconds(value.tv_usec);
    };
    usage.processor_time = std::chrono::floor<std::chrono::milliseconds>(time(used.ru_utime) + time(used.ru_stime));
  }
  // Pages: all, in memory, of those shared with files.
  int error = 0;
  const std::string counts = ReadFileBytes("/proc/self/statm", 4096, error).value_or("");
  std::array<std::uint64_t, 3> pages{};
  const char* at = counts.data();
  for (std::uint64_t& count : pages) {
    const auto [end, failure] = std::from_chars(at, counts.data() + counts.size(), count);
    if (failure != std::errc() || end == counts.data() + counts.size()) return usage;
    at = end + 1;
  }
  const auto page_bytes = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  if (pages[1] >= pages[2]) usage.memory_bytes = (pages[1] - pages[2]) * page_bytes;
  return usage;
}

}  // namespace platform

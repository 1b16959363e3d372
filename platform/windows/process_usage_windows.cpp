#include "platform/windows/sys.h"

#include <psapi.h>

#include "platform/process_usage.h"

namespace platform {
namespace {

std::chrono::nanoseconds Time(const FILETIME& time) {
  constexpr int kUnit = 100;  // nanoseconds
  return std::chrono::nanoseconds(
      static_cast<std::int64_t>((std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) * kUnit));
}

}  // namespace

ProcessUsage ReadProcessUsage() {
  ProcessUsage usage;
  FILETIME begin, end, kernel, user;
  if (GetProcessTimes(GetCurrentProcess(), &begin, &end, &kernel, &user)) {
    usage.processor_time = std::chrono::floor<std::chrono::milliseconds>(Time(kernel) + Time(user));
  }
  // The commit charge: what the process has for itself, in memory or paged out.
  PROCESS_MEMORY_COUNTERS memory{};
  if (K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory)) usage.memory_bytes = memory.PagefileUsage;
  return usage;
}

}  // namespace platform

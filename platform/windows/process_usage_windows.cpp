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
  PROCESS_MEMORY_COUNTERS_EX memory{};
  if (K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                              sizeof memory)) {
    usage.memory_bytes = memory.PrivateUsage;
  }
  return usage;
}

}  // namespace platform

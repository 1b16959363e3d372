#include "platform/linux/proc_text.h"

#include <algorithm>
#include <array>

#include "platform/text_scan.h"

namespace platform {
namespace {

/// No counter of a real machine comes near it, and sums and percentages of such numbers fit into 64 bits.
constexpr std::uint64_t kMostPlausible = std::uint64_t{1} << 53;

std::optional<std::uint64_t> PlausibleNumber(std::string_view text) {
  const auto number = ParseNumber(text);
  return number && *number <= kMostPlausible ? number : std::nullopt;
}

}  // namespace

std::optional<ProcessorTimes> DecodeProcessorTimes(std::string_view stat) {
  std::string_view line = TakeLine(stat);
  if (TakeWord(line) != "cpu") return std::nullopt;
  // user nice system idle iowait irq softirq steal. The guest times that follow are part of user and nice already.
  constexpr std::size_t kIdle = 3;
  constexpr std::size_t kIoWait = 4;
  constexpr std::size_t kFields = 8;
  ProcessorTimes times;
  for (std::size_t field = 0; field < kFields; ++field) {
    const std::string_view word = TakeWord(line);
    if (word.empty() && field > kIdle) break;  // Older kernels give fewer columns.
    const auto ticks = PlausibleNumber(word);
    if (!ticks) return std::nullopt;
    (field == kIdle || field == kIoWait ? times.idle : times.busy) += *ticks;
  }
  return times;
}

std::optional<std::int32_t> BusyPercent(const ProcessorTimes& before, const ProcessorTimes& after) {
  if (after.busy < before.busy || after.idle < before.idle) return std::nullopt;
  const std::uint64_t busy = after.busy - before.busy;
  const std::uint64_t all = busy + (after.idle - before.idle);
  if (all == 0) return std::nullopt;
  return static_cast<std::int32_t>((busy * 100 + all / 2) / all);
}

std::optional<std::int64_t> DecodeBootTime(std::string_view stat) {
  while (!stat.empty()) {
    std::string_view line = TakeLine(stat);
    if (TakeWord(line) != "btime") continue;
    const auto seconds = PlausibleNumber(TrimBlanks(line));
    return seconds ? std::optional(static_cast<std::int64_t>(*seconds)) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<MemoryStatus> DecodeMeminfo(std::string_view meminfo) {
  struct Row {
    std::string_view key;
    std::optional<std::uint64_t> kib;
  };
  enum { kTotal, kAvailable, kFree, kBuffers, kCached };
  std::array<Row, 5> rows = {
      {{"MemTotal:", {}}, {"MemAvailable:", {}}, {"MemFree:", {}}, {"Buffers:", {}}, {"Cached:", {}}}};
  while (!meminfo.empty()) {
    std::string_view line = TakeLine(meminfo);
    const std::string_view key = TakeWord(line);
    for (Row& row : rows) {
      if (row.key == key) row.kib = PlausibleNumber(TakeWord(line));
    }
  }
  const std::uint64_t total = rows[kTotal].kib.value_or(0);
  if (total == 0) return std::nullopt;
  const std::uint64_t stand_in =
      rows[kFree].kib.value_or(0) + rows[kBuffers].kib.value_or(0) + rows[kCached].kib.value_or(0);
  const std::uint64_t available = std::min(rows[kAvailable].kib.value_or(stand_in), total);
  return MemoryStatus{.load_percent = static_cast<std::uint32_t>((total - available) * 100 / total),
                      .total_bytes = total * 1024,
                      .available_bytes = available * 1024};
}

}  // namespace platform

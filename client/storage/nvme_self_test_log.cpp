#include "client/storage/nvme_self_test_log.h"

#include <cstddef>

#include "platform/little_endian.h"

namespace TVK {
namespace {

// NVM Express Base Specification 2.0c, 5.16.1.7, "Device Self-test Log" and "Self-test Result Data Structure".
constexpr std::size_t kSize = 564;
constexpr std::size_t kCurrentOperation = 0;
constexpr std::size_t kCurrentCompletion = 1;
constexpr std::size_t kNewestResult = 4;
constexpr std::size_t kResultStatus = 0;
constexpr std::size_t kResultPowerOnHours = 4;  // 8 bytes
constexpr std::uint8_t kEntryNotUsed = 0xF;

}  // namespace

std::optional<NvmeSelfTestLog> DecodeNvmeSelfTestLog(std::span<const std::uint8_t> page) {
  if (page.size() != kSize) return std::nullopt;
  NvmeSelfTestLog log;
  log.running = page[kCurrentOperation] & 0x0F;
  if (log.running != 0) log.percent_complete = page[kCurrentCompletion] & 0x7F;
  const auto newest = page.subspan(kNewestResult);
  const NvmeSelfTestResult result{
      .code = static_cast<std::uint8_t>(newest[kResultStatus] >> 4),
      .result = static_cast<std::uint8_t>(newest[kResultStatus] & 0x0F),
      .power_on_hours = platform::LittleEndianAt<std::uint64_t>(newest, kResultPowerOnHours)};
  // Drives that never ran one leave the page zero: there is no test with the code 0.
  if (result.result != kEntryNotUsed && result.code != 0) log.newest = result;
  return log;
}

}  // namespace TVK

// The parser of the power manager's log files: whatever stands in one, nothing crashes, what comes out makes sense, and
// no line that is logged holds anything of it.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "client/battery/pwm_file_info.h"
#include "testing/log_capture.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

/// Longer than the numbers of lines that may stand in a log.
constexpr std::size_t kTelling = 12;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  LogCapture lines;
  TVK::Log log;
  TVK::utility::InitLog(log, L"BatteryInfo.log", 4);
  const std::vector<PwmFileInfo> infos = PwmFileTool(log).GetPwmFileInfo(text);
  Require(infos.size() <= 16);
  for (const PwmFileInfo& info : infos) {
    Require(info.battery_number > 0 && info.cycle_count != 0u);
    Require(info.usage_date.has_value() == info.cycle_count.has_value());
    Require(info.usage_date.has_value() == info.usage_hours.has_value());
    Require(!info.first_use_date || info.first_use_date->ok());
    if (info.serial_number.size() >= kTelling) Require(!lines.Has(info.serial_number));
    PwmFileInfo twice = info;
    twice.Add(info);
    Require(twice == info);
  }
  Require(lines.Lines().size() <= 2);
  return 0;
}

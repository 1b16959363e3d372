// The parser of the power manager's log files: whatever stands in one, nothing crashes and what comes out makes sense.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "client/battery/pwm_file_info.h"
#include "platform/power_manager.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const platform::PowerManagerLog file{.name = "a.PWM", .bytes = size, .text = std::string(data, data + size)};
  TVK::SourceFaults faults({}, L"");
  const std::vector<PwmFileInfo> infos = PwmFileTool(faults).GetPwmFileInfo(file);
  Require(infos.size() <= 16);
  for (const PwmFileInfo& info : infos) {
    Require(info.battery_number > 0 && info.cycle_count != 0u);
    Require(info.usage_date.has_value() == info.cycle_count.has_value());
    Require(info.usage_date.has_value() == info.usage_hours.has_value());
    Require(!info.first_use_date || info.first_use_date->ok());
    PwmFileInfo twice = info;
    twice.Add(info);
    Require(twice == info);
  }
  return 0;
}

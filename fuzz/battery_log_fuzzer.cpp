// The parser of the power manager's log files: whatever stands in one, nothing crashes and what comes out makes sense.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "client/battery/pwm_file_info.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const TVK::Log log;
  const std::vector<PwmFileInfo> infos = PwmFileTool(log).GetPwmFileInfo(text);
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

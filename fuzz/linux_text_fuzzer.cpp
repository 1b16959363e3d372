// The decoders of the texts of /proc, /sys and /etc: whatever stands in them, nothing crashes and what comes out makes
// sense.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/block_device_text.h"
#include "platform/linux/cpu_text.h"
#include "platform/linux/mount_text.h"
#include "platform/linux/power_supply_text.h"
#include "platform/linux/proc_text.h"
#include "platform/linux/system_text.h"
#include "platform/linux/user_sessions.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

/// One part stands for a supply's notice, the other for each of its files, as for a second supply's notice.
void RequireSensiblePower(std::string_view notice, std::string_view file) {
  using namespace platform;
  const auto file_of = [&](const char* type) {
    return [file, type](const std::string& name) { return name == "type" ? type : std::string(file); };
  };
  const std::vector<PowerSupply> supplies = {DecodePowerSupply(notice, file_of("Battery")),
                                             DecodePowerSupply(file, file_of("Battery")),
                                             DecodePowerSupply(notice, file_of("Mains"))};
  for (const auto& [kind, online, battery] : supplies) {
    Require(battery.percent.value_or(0) <= 100);
    Require(battery.remaining_mwh.value_or(0) <= battery.full_mwh.value_or(UINT32_MAX));
    Require(battery.design_mwh != 0u && battery.full_mwh != 0u && battery.cycles != 0u);
    Require(battery.remaining_time.value_or(std::chrono::seconds(1)).count() > 0);
    Require(!battery.manufactured || battery.manufactured->ok());
    for (const std::string& name : {battery.name, battery.manufacturer, battery.chemistry, battery.serial_number})
      Require(name.empty() || (name.front() > ' ' && name.back() > ' ' && name.back() < 0x7F));
  }
  Require(SumUpPower(supplies).percent.value_or(0) <= 100);
}

void RequireClean(std::string_view text, std::size_t most) {
  Require(text.size() <= most && std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F; }));
  Require(!text.starts_with(' ') && !text.ends_with(' '));
}

void RequireSensibleDrive(std::string_view text) {
  using namespace platform;
  RequireClean(SerialOfPage80(text), text.size());
  if (const auto names = NamesOfPage89(text)) {
    RequireClean(names->model, 40);
    RequireClean(names->firmware_version, 8);
    Require(!names->model.empty());
  }
  const std::string usb = UsbDeviceFolder(text);
  Require(text.starts_with(usb) && (usb.empty() || text[usb.size()] == '/'));
  // Each line a word of a notice, in their order.
  std::array<std::string_view, 4> words;
  std::string_view rest = text;
  for (std::string_view& word : words) {
    word = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), word.size() + 1));
  }
  const auto change = DriveChangeOf({words[0], words[1], words[2], words[3]});
  Require(!change || (MayBeDrive(words[0]) && (words[2] == "remove") == (*change == DriveChange::kDetached)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  // The halves stand for two readings of one file.
  const auto before = DecodeProcessorTimes(text.substr(0, size / 2));
  const auto after = DecodeProcessorTimes(text.substr(size / 2));
  if (before && after) {
    const auto percent = BusyPercent(*before, *after);
    Require(!percent || (*percent >= 0 && *percent <= 100));
  }
  DecodeBootTime(text);
  if (const auto memory = DecodeMeminfo(text)) {
    Require(memory->load_percent <= 100 && memory->available_bytes <= memory->total_bytes);
  }
  Require(DecodeCpuinfo(text).address_width <= 64);
  Require(ParseProcessorList(text).size() <= 65536);
  Require(ParseProcessorMask(text).size() <= 65536);
  ParseCacheSize(text);
  for (const auto& [name, value] : DecodeAssignments(text)) {
    const Locale locale = DecodeLocaleName(value);
    Require(locale.tag.size() <= 7 && locale.territory.size() <= 3);
  }
  DecodeSession(text);
  CompareUserSessions(DecodeUserSessions(text.substr(0, size / 2), text.substr(size / 2)),
                      DecodeUserSessions(text, "tty2\n"));
  RequireSensiblePower(text.substr(0, size / 2), text.substr(size / 2));
  BusOfBlockDevice(text.substr(0, 8), text);
  Require(BytesOfSectors(text) % 512 == 0);
  const std::vector<Mount> mounts = DecodeMountinfo(text);
  for (std::size_t i = 0; i < mounts.size(); ++i) {
    Require(mounts[i].point.starts_with('/'));
    IsReachable(mounts, i);
  }
  const BlockDevice device = BlockDeviceOfLink(text, text.size() % 2 == 0);
  Require(device.name.find('/') == device.name.npos && device.drive.find('/') == device.drive.npos);
  Require(FileSystemIdOfUdev(text).size() <= size);
  SumOfErrors(text);
  RequireSensibleDrive(text);
  TimeZoneOfLink(text);
  Require(MachineIdOf(text).size() <= 32);
  return 0;
}

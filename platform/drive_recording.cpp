#include "platform/drive_recording.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "platform/ata_command.h"
#include "platform/nvme_command.h"

namespace platform {
namespace {

constexpr std::pair<DriveBus, std::string_view> kBuses[] = {
    {DriveBus::kNvme, "NVMe"}, {DriveBus::kAta, "ATA"},   {DriveBus::kUsb, "USB"},
    {DriveBus::kScsi, "SCSI"}, {DriveBus::kCard, "card"}, {DriveBus::kOther, "other"},
};

constexpr std::size_t kMostNameCharacters = 64;

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

/// One line's worth of it.
std::string Clean(std::string_view text) {
  std::string clean(text);
  std::ranges::replace_if(
      clean, [](char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }, ' ');
  const auto first = clean.find_first_not_of(' ');
  return first == clean.npos ? std::string() : clean.substr(first, clean.find_last_not_of(' ') + 1 - first);
}

std::optional<bool> YesOrNo(std::string_view text) {
  if (text == "yes") return true;
  if (text == "no") return false;
  return std::nullopt;
}

void TakeField(std::string_view key, std::string value, DriveListing& drive) {
  if (key == "path")
    drive.path = std::move(value);
  else if (key == "model")
    drive.model = std::move(value);
  else if (key == "firmware")
    drive.firmware_version = std::move(value);
  else if (key == "serial")
    drive.serial_number = std::move(value);
  else if (key == "rotating")
    drive.rotating = YesOrNo(value);
  else if (key == "removable")
    drive.removable = YesOrNo(value).value_or(false);
  else if (key == "bus") {
    const auto* const bus =
        std::ranges::find(kBuses, std::string_view(value), &std::pair<DriveBus, std::string_view>::second);
    drive.bus = bus == std::end(kBuses) ? DriveBus::kOther : bus->first;
  } else if (key == "bytes") {
    std::uint64_t bytes = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), bytes);
    drive.bytes = error == std::errc() && end == value.data() + value.size() ? bytes : 0;
  }
}

}  // namespace

std::string_view BusName(DriveBus bus) {
  return std::ranges::find(kBuses, bus, &std::pair<DriveBus, std::string_view>::first)->second;
}

std::vector<DrivePage> PagesOf(DriveBus bus) {
  using enum DrivePage;
  switch (bus) {
    case DriveBus::kNvme:
      return {kNvmeController, kNvmeHealth, kNvmeSelfTestLog};
    case DriveBus::kAta:
    case DriveBus::kUsb:
    case DriveBus::kScsi:
      return {kAtaIdentify, kAtaSmartValues, kAtaSmartThresholds, kAtaSelfTestLog};
    case DriveBus::kCard:
    case DriveBus::kOther:
      break;
  }
  return {};
}

std::string_view PageFileName(DrivePage page) {
  switch (page) {
    case DrivePage::kAtaIdentify:
      return "ata-identify";
    case DrivePage::kAtaSmartValues:
      return "ata-smart-values";
    case DrivePage::kAtaSmartThresholds:
      return "ata-smart-thresholds";
    case DrivePage::kAtaSelfTestLog:
      return "ata-self-test-log";
    case DrivePage::kNvmeController:
      return "nvme-controller";
    case DrivePage::kNvmeHealth:
      return "nvme-health";
    case DrivePage::kNvmeSelfTestLog:
      break;
  }
  return "nvme-self-test-log";
}

std::size_t PageSize(DrivePage page) {
  const auto command = NvmeCommandOf(page);
  return command ? command->bytes : kAtaSectorSize;
}

std::string DriveFolderName(std::string_view path) {
  const auto slash = path.find_last_of("/\\");
  std::string name(slash == path.npos ? path : path.substr(slash + 1));
  std::ranges::replace_if(
      name, [](char c) { return !IsNameCharacter(c); }, '_');
  name.resize(std::min(name.size(), kMostNameCharacters));
  return IsDriveFolderName(name) ? name : "drive" + name.substr(0, kMostNameCharacters - 5);
}

bool IsDriveFolderName(std::string_view name) {
  return !name.empty() && name.size() <= kMostNameCharacters && name.front() != '.' &&
         std::ranges::all_of(name, IsNameCharacter);
}

std::string EncodeDriveText(const DriveListing& drive) {
  std::string text;
  const auto add = [&text](std::string_view key, const std::string& value) {
    if (!value.empty()) text.append(key).append(" ").append(value).append("\n");
  };
  const auto yes = [](bool is) { return std::string(is ? "yes" : "no"); };
  add("path", Clean(drive.path));
  add("bus", std::string(BusName(drive.bus)));
  add("model", Clean(drive.model));
  add("firmware", Clean(drive.firmware_version));
  add("serial", Clean(drive.serial_number));
  add("bytes", std::to_string(drive.bytes));
  if (drive.rotating) add("rotating", yes(*drive.rotating));
  add("removable", yes(drive.removable));
  return text;
}

std::optional<DriveListing> DecodeDriveText(std::string_view text) {
  DriveListing drive;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const auto blank = line.find(' ');
    if (blank != line.npos) TakeField(line.substr(0, blank), Clean(line.substr(blank + 1)), drive);
  }
  if (drive.path.empty()) return std::nullopt;
  return drive;
}

}  // namespace platform

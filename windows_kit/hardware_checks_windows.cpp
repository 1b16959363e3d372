// Processors, drives, volumes, batteries and displays, by the doors that the service uses. No serial number is told.
#include <algorithm>
#include <utility>

#include "platform/batteries.h"
#include "platform/drives.h"
#include "platform/local.h"
#include "platform/local_desktop.h"
#include "platform/processors.h"
#include "platform/volumes.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/sys.h"
#include "windows_kit/checks.h"

namespace windows_kit {
namespace {

using platform::DriveBus;
using platform::DriveListing;
using platform::DrivePage;
using platform::DriveResult;

Finding ProcessorUtility() {
  constexpr std::chrono::seconds kSpan(1);
  constexpr int kMost = 1000;  // percent: no processor runs at ten times its nominal frequency
  const auto opening = platform::windows::MakeProcessors()->OpenUtility();
  if (opening.reader == nullptr) return Judge(false, "not opened: status " + std::to_string(opening.error));
  const auto runtime = platform::MakeRealRuntime({});
  const auto never = runtime->MakeEvent(platform::EventReset::kManual);
  opening.reader->Sample();
  runtime->Wait(*never, kSpan);
  const auto sample = opening.reader->Sample();
  return Judge(sample && *sample >= 0 && *sample <= kMost,
               sample ? std::to_string(*sample) + " percent over a second" : "no value after a second");
}

Finding ProcessorGroups() {
  const WORD groups = GetActiveProcessorGroupCount();
  const DWORD processors = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  const auto reading = platform::windows::MakeProcessors()->ReadTopology();
  const std::string seen = std::to_string(reading.topology.logical_processors) +
                           " processors told, the system counts " + std::to_string(processors) + " in " +
                           std::to_string(groups) + " groups";
  if (reading.topology.logical_processors != processors) return Judge(false, seen);
  return groups > 1 ? Judge(true, seen) : CannotTell(seen);
}

std::string_view NameOf(DriveBus bus) {
  constexpr std::string_view kNames[] = {"other", "NVMe", "ATA", "USB", "SCSI", "card"};
  return kNames[static_cast<std::size_t>(bus)];
}

std::string_view NameOf(DriveResult result) {
  constexpr std::string_view kNames[] = {"done", "no right", "not supported", "refused", "timed out", "gone", "failed"};
  return kNames[static_cast<std::size_t>(result)];
}

Finding DrivesAreListed() {
  const std::vector<DriveListing> drives = platform::windows::MakeDrives()->List();
  if (drives.empty()) return Judge(false, "no drive is listed");
  std::string seen;
  bool whole = true;
  for (const DriveListing& drive : drives) {
    seen += (seen.empty() ? "" : "; ") + std::string(NameOf(drive.bus)) + ", " + std::to_string(drive.bytes >> 30) +
            " GiB, " + (drive.model.empty() ? "no model" : drive.model);
    whole = whole && !drive.model.empty() && (drive.bytes != 0 || drive.removable);
  }
  return Judge(whole, seen);
}

// What each drive on `bus` answers to `page`. `right`: whether that is as it should be.
Finding AskDrives(DriveBus bus, DrivePage page, bool (*right)(DriveResult)) {
  const std::shared_ptr<platform::Drives> door = platform::windows::MakeDrives();
  std::string seen;
  bool holds = true;
  for (const DriveListing& drive : door->List()) {
    if (drive.bus != bus) continue;
    const auto opening = door->Open(drive);
    const platform::DriveAnswer answer =
        opening.drive ? opening.drive->Read(page) : platform::DriveAnswer{opening.result, opening.error};
    seen += (seen.empty() ? "" : "; ") + drive.model + ": " + std::string(NameOf(answer.result)) + " (error " +
            std::to_string(answer.error) + ", " + std::to_string(answer.bytes.size()) + " bytes)";
    // A driver of the maker's may know no such question: that says nothing of the right.
    if (answer.result == DriveResult::kNotSupported) continue;
    holds = holds && right(answer.result);
  }
  if (seen.empty()) return CannotTell("no drive is on that bus");
  return Judge(holds, seen);
}

Finding NvmeHealth() {
  return AskDrives(DriveBus::kNvme, DrivePage::kNvmeHealth,
                   [](DriveResult result) { return result == DriveResult::kDone; });
}

Finding AtaIdentity() {
  return AskDrives(DriveBus::kAta, DrivePage::kAtaIdentify,
                   [](DriveResult result) { return result == DriveResult::kDone || result == DriveResult::kNoRight; });
}

Finding AtaAttributes() {
  return AskDrives(DriveBus::kAta, DrivePage::kAtaSmartValues,
                   [](DriveResult result) { return result == DriveResult::kDone; });
}

Finding SystemVolume() {
  const auto volumes = platform::windows::MakeVolumes()->List();
  const auto system = std::ranges::count(volumes, platform::VolumeRole::kSystem, &platform::Volume::role);
  const bool spaces = std::ranges::all_of(volumes, [](const platform::Volume& volume) {
    return volume.role == platform::VolumeRole::kRemovable || volume.space.has_value();
  });
  const bool errors = std::ranges::all_of(volumes, [](const platform::Volume& volume) {
    return volume.file_system != "NTFS" || volume.errors.has_value();
  });
  return Judge(system >= 1 && spaces && errors, std::to_string(volumes.size()) + " volumes, " + std::to_string(system) +
                                                    " of the system" + (spaces ? "" : "; some without their size") +
                                                    (errors ? "" : "; the log did not tell of errors"));
}

Finding Batteries() {
  constexpr BYTE kNoBattery = 128;
  constexpr std::uint32_t kApart = 5;  // percent: the two are not asked at one moment
  SYSTEM_POWER_STATUS status{};
  GetSystemPowerStatus(&status);
  const auto batteries = platform::windows::MakeBatteries()->List();
  std::string seen = std::to_string(batteries.size()) + " batteries";
  if ((status.BatteryFlag & kNoBattery) != 0 && batteries.empty()) return CannotTell("the machine has no battery");
  for (const platform::BatteryFacts& battery : batteries) {
    seen += "; " + battery.slot + ": " + (battery.percent ? std::to_string(*battery.percent) : "unknown") +
            " percent, full " + std::to_string(battery.full_mwh.value_or(0)) + " mWh, " +
            std::to_string(battery.cycles.value_or(0)) + " cycles";
  }
  seen += "; the system says " + std::to_string(status.BatteryLifePercent) + " percent";
  const bool alike = batteries.size() != 1 || !batteries[0].percent ||
                     (*batteries[0].percent <= status.BatteryLifePercent + kApart &&
                      status.BatteryLifePercent <= *batteries[0].percent + kApart);
  return Judge(!batteries.empty() && alike, seen);
}

Finding Displays() {
  const auto displays = platform::OpenLocalDesktop()->ListDisplays();
  const int monitors = GetSystemMetrics(SM_CMONITORS);
  const auto described = std::ranges::count_if(displays, [](const auto& display) { return !display.edid.empty(); });
  const std::string seen = std::to_string(displays.size()) + " listed, " + std::to_string(described) +
                           " tell who made them; the system counts " + std::to_string(monitors);
  if (monitors == 0) return CannotTell("no display is part of the desktop");
  // Those of a virtual machine and of a remote session have nothing to tell.
  if (described == 0) return CannotTell(seen);
  return Judge(std::cmp_greater_equal(displays.size(), monitors), seen);
}

Finding DisplayScaling() {
  constexpr UINT kUnscaled = 96;
  DEVMODEW mode{};
  mode.dmSize = sizeof mode;
  if (!EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode)) return CannotTell("there is no display");
  const DPI_AWARENESS_CONTEXT before = SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE);
  const int width = GetSystemMetrics(SM_CXSCREEN);
  const int height = GetSystemMetrics(SM_CYSCREEN);
  const UINT scale = GetDpiForSystem();
  SetThreadDpiAwarenessContext(before);
  const auto size = [](auto x, auto y) { return std::to_string(x) + " x " + std::to_string(y); };
  const std::string seen = "the mode is " + size(mode.dmPelsWidth, mode.dmPelsHeight) + ", the window's thread sees " +
                           size(width, height) + " at " + std::to_string(scale) + " dots per inch";
  if (scale == kUnscaled) return CannotTell(seen);
  return Judge(std::cmp_equal(width, mode.dmPelsWidth) && std::cmp_equal(height, mode.dmPelsHeight), seen);
}

constexpr Check kChecks[] = {
    {"processor-utility", "\"% Processor Utility\" exists and its \"_Total\" has a value.", ProcessorUtility},
    {"processor-groups", "All processors of all groups are counted.", ProcessorGroups},
    {"drives", "Every drive is listed with bus, model and size, without a right to it.", DrivesAreListed},
    {"nvme-without-right", "An NVMe drive's health needs no right to the drive.", NvmeHealth},
    {"ata-right", "An ATA drive's identity is told, or refused for want of a right, and nothing else.", AtaIdentity},
    {"ata-attributes", "An administrator reads the attributes of an ATA drive.", AtaAttributes, Needs::kAdministrator},
    {"volumes", "The system's volume is listed, every fixed one with its size, NTFS' with the errors that the log has.",
     SystemVolume},
    {"batteries", "The batteries hold what the system says they hold.", Batteries},
    {"displays", "Every display of the desktop is listed, with what it says of itself.", Displays},
    {"display-scaling", "A window of ours is told the pixels that a scaled display has.", DisplayScaling},
};

}  // namespace

std::span<const Check> HardwareChecks() {
  return kChecks;
}

}  // namespace windows_kit

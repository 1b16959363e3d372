#include "platform/battery_class.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/battery_text.h"
#include "platform/drive_text.h"
#include "platform/little_endian.h"
#include "platform/utf16_text.h"

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

// BATTERY_INFORMATION.
constexpr std::size_t kCapabilities = 0;
constexpr std::size_t kChemistry = 8;  // 4 bytes, without a terminator
constexpr std::size_t kChemistrySize = 4;
constexpr std::size_t kDesignedCapacity = 12;
constexpr std::size_t kFullChargedCapacity = 16;
constexpr std::size_t kCycleCount = 32;
constexpr std::size_t kInformationSize = 36;
// Its capabilities.
constexpr std::uint32_t kIsShortTerm = 0x20000000;       // BATTERY_IS_SHORT_TERM
constexpr std::uint32_t kCapacityRelative = 0x40000000;  // BATTERY_CAPACITY_RELATIVE
constexpr std::uint32_t kSystemBattery = 0x80000000;     // BATTERY_SYSTEM_BATTERY

// BATTERY_STATUS.
constexpr std::size_t kPowerState = 0;
constexpr std::size_t kCapacity = 4;
constexpr std::size_t kRate = 12;
constexpr std::size_t kStatusSize = 16;
// Its power state.
constexpr std::uint32_t kPowerOnLine = 0x1;  // BATTERY_POWER_ON_LINE
constexpr std::uint32_t kDischarging = 0x2;  // BATTERY_DISCHARGING
constexpr std::uint32_t kCharging = 0x4;     // BATTERY_CHARGING

// BATTERY_MANUFACTURE_DATE: day, month, and the year in two bytes.
constexpr std::size_t kDateSize = 4;

constexpr std::size_t kTextSize = 512;  // twice MAX_BATTERY_STRING_SIZE, in UTF-16

// BATTERY_UNKNOWN_CAPACITY, BATTERY_UNKNOWN_TIME; cycles too, in the words of the ACPI tables.
constexpr std::uint32_t kUnknown = 0xFFFFFFFF;
constexpr std::uint32_t kUnknownRate = 0x80000000;  // BATTERY_UNKNOWN_RATE

// GetLastError.
constexpr std::uint32_t kFileNotFound = 2;           // a stale tag up to Windows 10 1809
constexpr std::uint32_t kNoSuchDevice = 433;         // a stale tag since
constexpr std::uint32_t kDeviceNotConnected = 1167;  // its driver has gone
constexpr std::uint32_t kTimeout = 1460;             // it did not answer in time

std::optional<std::uint32_t> Number(std::span<const std::uint8_t> bytes, std::size_t at) {
  const auto number = LittleEndianAt<std::uint32_t>(bytes, at);
  return number == kUnknown ? std::nullopt : std::optional(number);
}

// Nothing for 0, which is what cannot be or what drivers say for "unknown".
std::optional<std::uint32_t> Count(std::span<const std::uint8_t> bytes, std::size_t at) {
  const auto number = Number(bytes, at);
  return number == 0u ? std::nullopt : number;
}

std::optional<std::chrono::year_month_day> Date(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kDateSize) return std::nullopt;
  return BatteryDate(LittleEndianAt<std::uint16_t>(bytes, 2), bytes[1], bytes[0]);
}

std::optional<ChargeState> StateOf(std::uint32_t power_state) {
  const bool charging = (power_state & kCharging) != 0;
  const bool discharging = (power_state & kDischarging) != 0;
  if (charging && discharging) return std::nullopt;
  return charging ? ChargeState::kCharging : discharging ? ChargeState::kDischarging : ChargeState::kIdle;
}

// What a battery holds, in mWh or in units of its own, which cancel each other out.
struct Charge {
  std::optional<std::uint32_t> remaining;
  std::optional<std::uint32_t> full;
  std::optional<std::int64_t> rate;  ///< Units an hour; positive while it is charged.
};

std::optional<std::uint32_t> PercentOf(const Charge& charge) {
  if (!charge.remaining || !charge.full) return std::nullopt;
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(std::uint64_t{*charge.remaining} * 100 / *charge.full, 100));
}

std::optional<std::chrono::seconds> TimeLeft(ChargeState state, const Charge& charge) {
  if (!charge.remaining || !charge.rate) return std::nullopt;
  const std::int64_t remaining = *charge.remaining;
  const std::int64_t rate = *charge.rate;
  if (state == ChargeState::kDischarging && rate < 0) return std::chrono::seconds(remaining * 3600 / -rate);
  if (state == ChargeState::kCharging && rate > 0 && charge.full) {
    return std::chrono::seconds(std::max<std::int64_t>(*charge.full - remaining, 0) * 3600 / rate);
  }
  return std::nullopt;
}

/// The questions to one battery. After `lost` there is no sense in more of them.
class Reading {
 public:
  /// `patient`: a level beside the first that is refused as if the battery had changed is only not told.
  Reading(const AskBattery& ask, bool patient) : ask_(ask), patient_(patient) {}

  bool lost() const { return lost_; }
  /// The battery has changed, and may be asked for anew.
  bool stale() const { return stale_; }

  /// False: the slot is empty.
  bool FindBattery() {
    const Bytes no_wait(sizeof(tag_));
    const Bytes answer = ask_(kBatteryQueryTag, no_wait, sizeof(tag_)).bytes;
    if (answer.size() >= sizeof(tag_)) tag_ = LittleEndianAt<std::uint32_t>(answer, 0);
    return tag_ != 0;
  }

  Bytes Level(BatteryLevel level, std::size_t size) {
    Bytes request(12);  // BATTERY_QUERY_INFORMATION: tag, level, at which rate (0: the present one)
    PutLittleEndian(request, 0, tag_);
    PutLittleEndian(request, 4, static_cast<std::uint32_t>(level));
    return Ask(kBatteryQueryInformation, request, size, level != BatteryLevel::kInformation);
  }
  std::string Text(BatteryLevel level) { return Utf16Text(Level(level, kTextSize)); }

  Bytes Status() {
    Bytes request(20);  // BATTERY_WAIT_STATUS: tag, timeout (0: at once), and for what change to wait
    PutLittleEndian(request, 0, tag_);
    return Ask(kBatteryQueryStatus, request, kStatusSize, false);
  }

 private:
  Bytes Ask(std::uint32_t code, const Bytes& request, std::size_t size, bool optional) {
    if (lost_ || slow_) return {};
    DriverAnswer answer = ask_(code, request, size);
    stale_ = !(optional && patient_) && (answer.error == kFileNotFound || answer.error == kNoSuchDevice);
    // What can be done without is no reason to count the battery as gone.
    slow_ = optional && answer.error == kTimeout;
    lost_ = stale_ || answer.error == kDeviceNotConnected || (answer.error == kTimeout && !optional);
    return std::move(answer.bytes);
  }

  const AskBattery& ask_;
  const bool patient_;
  std::uint32_t tag_ = 0;
  bool lost_ = false;
  bool slow_ = false;  // Its driver did not answer in time: nothing more is asked.
  bool stale_ = false;
};

void ReadStatus(Reading& reading, bool relative, std::optional<std::uint32_t> full, BatteryFacts& facts) {
  const Bytes status = reading.Status();
  if (status.size() < kStatusSize) return;
  const auto power_state = LittleEndianAt<std::uint32_t>(status, kPowerState);
  facts.state = StateOf(power_state);
  facts.on_ac = (power_state & kPowerOnLine) != 0;
  Charge charge{Number(status, kCapacity), full, std::nullopt};
  const auto rate = LittleEndianAt<std::uint32_t>(status, kRate);
  if (rate != kUnknownRate) charge.rate = static_cast<std::int32_t>(rate);
  facts.percent = PercentOf(charge);
  if (!relative) facts.remaining_mwh = charge.remaining;
  if (!facts.state) return;
  if (facts.state == ChargeState::kDischarging) {
    // The system's own estimate is smoothed.
    const Bytes time = reading.Level(BatteryLevel::kEstimatedTime, sizeof(std::uint32_t));
    if (time.size() >= sizeof(std::uint32_t)) {
      if (const auto seconds = Number(time, 0)) facts.remaining_time = std::chrono::seconds(*seconds);
    }
  }
  if (!facts.remaining_time) facts.remaining_time = TimeLeft(*facts.state, charge);
}

// Without a battery of the machine: nothing.
std::optional<BatteryFacts> ReadAll(Reading& reading) {
  if (!reading.FindBattery()) return std::nullopt;
  const Bytes information = reading.Level(BatteryLevel::kInformation, kInformationSize);
  if (information.size() < kInformationSize) return std::nullopt;
  const auto capabilities = LittleEndianAt<std::uint32_t>(information, kCapabilities);
  if ((capabilities & kSystemBattery) == 0 || (capabilities & kIsShortTerm) != 0) return std::nullopt;
  const bool relative = (capabilities & kCapacityRelative) != 0;
  const auto full = Count(information, kFullChargedCapacity);
  BatteryFacts facts;
  facts.chemistry = DriveText(std::span(information).subspan(kChemistry, kChemistrySize));
  facts.cycles = Count(information, kCycleCount);
  if (!relative) {
    facts.design_mwh = Count(information, kDesignedCapacity);
    facts.full_mwh = full;
  }
  ReadStatus(reading, relative, full, facts);
  facts.name = reading.Text(BatteryLevel::kDeviceName);
  facts.manufacturer = reading.Text(BatteryLevel::kManufactureName);
  facts.serial_number = reading.Text(BatteryLevel::kSerialNumber);
  DropFillers(facts);
  facts.manufactured = Date(reading.Level(BatteryLevel::kManufactureDate, kDateSize));
  return reading.lost() ? std::nullopt : std::optional(std::move(facts));
}

std::string UpperAscii(std::string_view text) {
  std::string upper;
  for (const char c : text)
    upper += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c > ' ' && c < 0x7F ? c : '_';
  return upper;
}

// The part before the next "#", which it takes away.
std::string_view TakePart(std::string_view& rest) {
  const std::string_view part = rest.substr(0, rest.find('#'));
  rest.remove_prefix(std::min(rest.size(), part.size() + 1));
  return part;
}

std::string BatterySlot(std::string_view path) {
  constexpr std::string_view kPrefix = R"(\\?\)";
  if (path.starts_with(kPrefix)) path.remove_prefix(kPrefix.size());
  const std::string bus = UpperAscii(TakePart(path));
  const std::string device = UpperAscii(TakePart(path));
  const std::string instance = UpperAscii(TakePart(path));
  if (device.empty()) return "BATTERY";
  constexpr std::size_t kLongestCount = 4;
  const bool counted = (bus == "ACPI" || bus == "ROOT") && instance.size() <= kLongestCount;
  const bool made_up = instance.size() > 1 && instance[1] == '&';  // as in "4&1A2B3C4D&0"
  return !instance.empty() && (counted || made_up) ? device + "-" + instance : device;
}

}  // namespace

std::optional<BatteryFacts> ReadBattery(const AskBattery& ask) {
  Reading first(ask, false);
  auto facts = ReadAll(first);
  if (!first.stale()) return facts;
  Reading second(ask, true);
  return ReadAll(second);
}

std::vector<std::string> BatterySlots(std::span<const std::string> paths) {
  std::vector<std::string> slots;
  for (const std::string& path : paths) {
    const std::string name = BatterySlot(path);
    std::string slot = name;
    for (int n = 2; std::ranges::find(slots, slot) != slots.end(); ++n)
      slot = name + "-" + std::to_string(n);
    slots.push_back(std::move(slot));
  }
  return slots;
}

}  // namespace platform

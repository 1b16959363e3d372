#include "platform/linux/power_supply_text.h"

#include <algorithm>

#include "platform/text_scan.h"

namespace platform {
namespace {

using Kind = PowerSupply::Kind;

constexpr std::string_view kPrefix = "POWER_SUPPLY_";

Kind KindOf(std::string_view type) {
  if (type == "Battery") return Kind::kBattery;
  if (type == "UPS") return Kind::kUps;
  // Older kernels tell what a USB port has found out: "USB_PD", "USB_DCP".
  const bool adapter = type == "Mains" || type == "Wireless" || type.starts_with("USB");
  return adapter ? Kind::kAdapter : Kind::kOther;
}

bool Exists(const std::vector<PowerSupply>& supplies, Kind kind) {
  return std::ranges::find(supplies, kind, &PowerSupply::kind) != supplies.end();
}

std::optional<PowerSource> SourceOf(const std::vector<PowerSupply>& supplies) {
  const auto gives = [&](Kind kind, bool PowerSupply::*how) {
    return std::ranges::any_of(supplies, [&](const PowerSupply& one) { return one.kind == kind && one.*how; });
  };
  if (gives(Kind::kUps, &PowerSupply::discharging)) return PowerSource::kShortTerm;
  if (gives(Kind::kAdapter, &PowerSupply::online)) return PowerSource::kAc;
  if (!Exists(supplies, Kind::kBattery)) {
    return Exists(supplies, Kind::kAdapter) || Exists(supplies, Kind::kUps) ? std::optional(PowerSource::kAc)
                                                                            : std::nullopt;
  }
  if (Exists(supplies, Kind::kAdapter) || gives(Kind::kBattery, &PowerSupply::discharging)) {
    return PowerSource::kBattery;
  }
  return PowerSource::kAc;
}

std::optional<std::uint32_t> PercentOf(const std::vector<PowerSupply>& supplies) {
  double all = 0;
  double weighed = 0;
  double sum = 0;
  double batteries = 0;
  bool weights = true;
  for (const PowerSupply& supply : supplies) {
    if (supply.kind != Kind::kBattery || !supply.percent) continue;
    weights = weights && supply.full > 0;
    all += static_cast<double>(supply.full);
    weighed += static_cast<double>(supply.full) * *supply.percent;
    sum += *supply.percent;
    ++batteries;
  }
  if (batteries == 0) return std::nullopt;
  return static_cast<std::uint32_t>((weights ? weighed / all : sum / batteries) + 0.5);
}

}  // namespace

PowerSupply DecodePowerSupply(std::string_view uevent, std::string_view type) {
  PowerSupply supply{.kind = KindOf(TrimBlanks(type))};
  while (!uevent.empty()) {
    std::string_view line = TakeLine(uevent);
    if (!line.starts_with(kPrefix)) continue;
    line.remove_prefix(kPrefix.size());
    const auto sign = line.find('=');
    if (sign == std::string_view::npos) continue;
    const std::string_view key = line.substr(0, sign);
    const std::string_view value = TrimBlanks(line.substr(sign + 1));
    const auto number = ParseNumber(value);
    if (key == "SCOPE" && value == "Device") return {};
    if (key == "ONLINE") supply.online = number.value_or(0) > 0;
    if (key == "STATUS") supply.discharging = value == "Discharging";
    if (key == "CAPACITY" && number && *number <= 100) supply.percent = static_cast<std::uint32_t>(*number);
    if (key == "ENERGY_FULL" || key == "CHARGE_FULL") supply.full = number.value_or(0);
  }
  return supply;
}

PowerStatus SumUpPower(const std::vector<PowerSupply>& supplies) {
  return {.source = SourceOf(supplies), .percent = PercentOf(supplies)};
}

}  // namespace platform

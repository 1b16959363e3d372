#include "platform/linux/power_supply_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>

#include "platform/battery_text.h"
#include "platform/text_scan.h"

namespace platform {
namespace {

using Kind = PowerSupply::Kind;

/// The properties of one supply by their names in lower case, as their files are named.
class Properties {
 public:
  Properties(std::string_view uevent, const AttributeReader& attribute) : attribute_(attribute) {
    constexpr std::string_view kPrefix = "POWER_SUPPLY_";
    while (!uevent.empty()) {
      std::string_view line = TakeLine(uevent);
      if (!line.starts_with(kPrefix)) continue;
      line.remove_prefix(kPrefix.size());
      const auto sign = line.find('=');
      if (sign != std::string_view::npos) told_.emplace(Lower(line.substr(0, sign)), line.substr(sign + 1));
    }
  }

  /// Without what firmware fills a text up with; other bytes than those of its alphabet, ASCII, count as blanks.
  std::string Text(const std::string& name) const {
    const auto found = told_.find(name);
    std::string text = found != told_.end() ? std::string(found->second) : attribute_(name);
    for (char& byte : text)
      if (byte < ' ' || byte > '~') byte = ' ';
    return std::string(TrimBlanks(text));
  }

  std::optional<std::uint64_t> Number(const std::string& name) const { return ParseNumber(Text(name)); }

  /// The first of the numbers that is above zero, without its sign: of currents some drivers count those below zero
  /// that leave the battery.
  std::optional<double> Magnitude(std::initializer_list<const char*> names) const {
    for (const char* const name : names) {
      const std::string text = Text(name);
      const auto number = ParseNumber(std::string_view(text).substr(text.starts_with('-') ? 1 : 0));
      if (number.value_or(0) > 0) return static_cast<double>(*number);
    }
    return std::nullopt;
  }

 private:
  static std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& letter : lower)
      if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return lower;
  }

  const AttributeReader& attribute_;
  std::map<std::string, std::string_view, std::less<>> told_;
};

Kind KindOf(const Properties& supply) {
  const std::string type = supply.Text("type");
  // Older kernels tell what a USB port has found out: "USB_PD", "USB_DCP".
  const bool adapter = type == "Mains" || type == "Wireless" || type.starts_with("USB");
  const bool battery = type == "Battery";
  if ((!adapter && !battery && type != "UPS") || supply.Text("scope") == "Device") return Kind::kOther;
  if (adapter) return Kind::kAdapter;
  if (!battery) return Kind::kUps;
  return supply.Text("present") == "0" ? Kind::kOther : Kind::kBattery;
}

std::optional<ChargeState> StateOf(const Properties& supply) {
  const std::string status = supply.Text("status");
  if (status == "Charging") return ChargeState::kCharging;
  if (status == "Discharging") return ChargeState::kDischarging;
  if (status == "Full" || status == "Not charging") return ChargeState::kIdle;
  return std::nullopt;
}

/// What a battery holds, in microwatt-hours.
struct Energies {
  std::optional<double> design;
  std::optional<double> full;
  std::optional<double> remaining;
  bool charges = false;  ///< What remains was told as a charge.
  double volts = 0;      ///< At which charges count; 0: not told.
};

Energies EnergiesOf(const Properties& supply) {
  constexpr double kMicro = 1e-6;
  // Drivers fill in parts of a volt where they know none.
  constexpr double kLeastVolts = 1;
  // Below, there is no battery; above, it is how some drivers say that they do not know (10 kWh).
  constexpr double kLeast = 1000;
  constexpr double kMost = 1e10;
  Energies energies;
  const auto volts = [&](const char* name) {
    const double told = kMicro * static_cast<double>(supply.Number(name).value_or(0));
    return told >= kLeastVolts ? told : 0;
  };
  double design_volts = volts("voltage_max_design");
  if (design_volts == 0) design_volts = volts("voltage_min_design");
  energies.volts = design_volts > 0 ? design_volts : volts("voltage_now");
  const auto read = [&](const std::string& what, double least, bool* charge) -> std::optional<double> {
    auto told = supply.Number("energy_" + what);
    double factor = 1;
    if (!told && energies.volts > 0) {
      told = supply.Number("charge_" + what);
      factor = energies.volts;
      if (told && charge != nullptr) *charge = true;
    }
    const double all = factor * static_cast<double>(told.value_or(0));
    return told && all >= least && all <= kMost ? std::optional(all) : std::nullopt;
  };
  energies.design = read("full_design", kLeast, nullptr);
  // What a battery was designed for does not change with its present voltage.
  if (design_volts == 0 && !supply.Number("energy_full_design")) energies.design.reset();
  energies.full = read("full", kLeast, nullptr);
  energies.remaining = read("now", 0, &energies.charges);
  return energies;
}

/// Fills up what the driver does not tell of percentage and energy, and tells both.
void ReadCapacities(const Properties& supply, Energies& energies, BatteryFacts& facts) {
  const auto capacity = supply.Number("capacity");
  if (capacity && *capacity <= 100) facts.percent = static_cast<std::uint32_t>(*capacity);
  const bool remains = energies.remaining.value_or(0) > 0;
  if (energies.full && remains) {
    // What it holds at most is learned once in a while, and it holds what it holds now.
    energies.full = std::max(*energies.full, *energies.remaining);
    if (facts.percent.value_or(0) == 0) {
      facts.percent = static_cast<std::uint32_t>(100 * *energies.remaining / *energies.full);
    }
  } else if (!remains) {
    // None at all and none that is told read the same; the percentage tells them apart.
    energies.remaining.reset();
    if (energies.full && facts.percent) energies.remaining = *energies.full * *facts.percent / 100;
  }
  const auto milliwatt_hours = [](std::optional<double> microwatt_hours) -> std::optional<std::uint32_t> {
    if (!microwatt_hours) return std::nullopt;
    return static_cast<std::uint32_t>(std::lround(*microwatt_hours / 1000));
  };
  facts.design_mwh = milliwatt_hours(energies.design);
  facts.full_mwh = milliwatt_hours(energies.full);
  facts.remaining_mwh = milliwatt_hours(energies.remaining);
}

std::optional<std::chrono::seconds> RemainingTime(const Properties& supply, const Energies& energies,
                                                  const BatteryFacts& facts) {
  using std::chrono::seconds;
  constexpr double kSecondsAnHour = 3600;
  // Batteries say 65535 minutes when they do not know.
  constexpr double kLongest = 10 * 24 * kSecondsAnHour;
  const bool charging = facts.state == ChargeState::kCharging;
  if (!charging && facts.state != ChargeState::kDischarging) return std::nullopt;
  const auto told = charging ? supply.Magnitude({"time_to_full_now", "time_to_full_avg"})
                             : supply.Magnitude({"time_to_empty_now", "time_to_empty_avg"});
  const auto time = [](double length) -> std::optional<seconds> {
    if (length < 1 || length > kLongest) return std::nullopt;
    return seconds(std::llround(length));
  };
  if (told && time(*told)) return time(*told);
  if (!energies.remaining || (charging && !energies.full)) return std::nullopt;
  auto rate = supply.Magnitude({"power_now", "power_avg"});
  if (!rate) {
    // A charge that was counted at one voltage flows at that one, too.
    const double volts = energies.charges ? energies.volts : supply.Magnitude({"voltage_now"}).value_or(0) * 1e-6;
    rate = supply.Magnitude({"current_now", "current_avg"}).value_or(0) * volts;
  }
  const double way = charging ? *energies.full - *energies.remaining : *energies.remaining;
  return *rate > 0 ? time(way / *rate * kSecondsAnHour) : std::nullopt;
}

std::optional<std::chrono::year_month_day> DateOf(const Properties& supply) {
  const auto part = [&](const char* name) { return supply.Number(name).value_or(0); };
  return BatteryDate(part("manufacture_year"), part("manufacture_month"), part("manufacture_day"));
}

BatteryFacts FactsOf(const Properties& supply) {
  BatteryFacts facts{.name = supply.Text("model_name"),
                     .manufacturer = supply.Text("manufacturer"),
                     .chemistry = supply.Text("technology"),
                     .serial_number = supply.Text("serial_number"),
                     .manufactured = DateOf(supply),
                     .state = StateOf(supply)};
  DropFillers(facts);
  Energies energies = EnergiesOf(supply);
  ReadCapacities(supply, energies, facts);
  facts.remaining_time = RemainingTime(supply, energies, facts);
  const auto cycles = supply.Number("cycle_count").value_or(0);
  // Beyond 16 bits no battery counts.
  if (cycles > 0 && cycles < 0xFFFF) facts.cycles = static_cast<std::uint32_t>(cycles);
  return facts;
}

bool Exists(const std::vector<PowerSupply>& supplies, Kind kind) {
  return std::ranges::find(supplies, kind, &PowerSupply::kind) != supplies.end();
}

std::optional<PowerSource> SourceOf(const std::vector<PowerSupply>& supplies) {
  const auto in_state = [&](Kind kind, ChargeState state) {
    return std::ranges::any_of(supplies,
                               [&](const PowerSupply& one) { return one.kind == kind && one.facts.state == state; });
  };
  const auto gives = [](const PowerSupply& one) { return one.kind == Kind::kAdapter && one.online; };
  if (in_state(Kind::kUps, ChargeState::kDischarging)) return PowerSource::kShortTerm;
  if (std::ranges::any_of(supplies, gives)) return PowerSource::kAc;
  const bool adapter = Exists(supplies, Kind::kAdapter);
  if (!Exists(supplies, Kind::kBattery)) {
    return adapter || Exists(supplies, Kind::kUps) ? std::optional(PowerSource::kAc) : std::nullopt;
  }
  if (adapter || in_state(Kind::kBattery, ChargeState::kDischarging)) return PowerSource::kBattery;
  const bool known = in_state(Kind::kBattery, ChargeState::kIdle) || in_state(Kind::kBattery, ChargeState::kCharging);
  return known ? std::optional(PowerSource::kAc) : std::nullopt;
}

std::optional<std::uint32_t> PercentOf(const std::vector<PowerSupply>& supplies) {
  double all = 0;
  double weighed = 0;
  double sum = 0;
  double batteries = 0;
  bool weights = true;
  for (const PowerSupply& supply : supplies) {
    if (supply.kind != Kind::kBattery || !supply.facts.percent) continue;
    const double percent = *supply.facts.percent;
    const double full = supply.facts.full_mwh.value_or(0);
    weights = weights && full > 0;
    all += full;
    weighed += full * percent;
    sum += percent;
    ++batteries;
  }
  if (batteries == 0) return std::nullopt;
  return static_cast<std::uint32_t>((weights ? weighed / all : sum / batteries) + 0.5);
}

/// The limits are those of Windows (SYSTEM_POWER_STATUS, BatteryFlag).
std::optional<ChargeLevel> LevelOf(std::optional<std::uint32_t> percent) {
  if (!percent) return std::nullopt;
  if (*percent > 66) return ChargeLevel::kHigh;
  if (*percent < 5) return ChargeLevel::kCritical;
  return *percent < 33 ? std::optional(ChargeLevel::kLow) : std::nullopt;
}

}  // namespace

PowerSupply DecodePowerSupply(std::string_view uevent, const AttributeReader& attribute) {
  const Properties properties(uevent, attribute);
  PowerSupply supply{.kind = KindOf(properties)};
  if (supply.kind == Kind::kAdapter) supply.online = properties.Number("online").value_or(0) > 0;
  if (supply.kind == Kind::kUps) supply.facts.state = StateOf(properties);
  if (supply.kind == Kind::kBattery) supply.facts = FactsOf(properties);
  return supply;
}

PowerStatus SumUpPower(const std::vector<PowerSupply>& supplies) {
  const auto percent = PercentOf(supplies);
  const auto charges = [](const PowerSupply& one) {
    return one.kind == Kind::kBattery && one.facts.state == ChargeState::kCharging;
  };
  const auto is_battery = [](const PowerSupply& one) { return one.kind == Kind::kBattery; };
  return {.source = SourceOf(supplies),
          .percent = percent,
          .level = LevelOf(percent),
          .charging = std::ranges::any_of(supplies, charges),
          .has_battery = std::ranges::any_of(supplies, is_battery)};
}

}  // namespace platform

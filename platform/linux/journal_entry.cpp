#include "platform/linux/journal_entry.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "platform/text_scan.h"

namespace platform {
namespace {

// Of systemd's catalogue: a process crashed and dumped core.
constexpr std::string_view kCoredump = "fc2e22bc6ee647b6b90729ab34a250b1";

// systemd-pstore(8), which clears away what the kernel kept of a crash over the boot.
constexpr std::string_view kDumpKeeper = "systemd-pstore";

/// What is looked at of an entry.
struct Fields {
  std::string_view priority;
  std::string_view facility;
  std::string_view identifier;
  std::string_view command;
  std::string_view transport;
  std::string_view message_id;
  std::string_view process;
  std::string_view thread;
  std::string_view user;
  std::string_view unit;
  std::string_view user_unit;
  std::string_view file;
};

struct Place {
  std::string_view name;
  std::string_view Fields::*value;
};
constexpr std::array<Place, 12> kPlaces = {{{"PRIORITY", &Fields::priority},
                                            {"SYSLOG_FACILITY", &Fields::facility},
                                            {"SYSLOG_IDENTIFIER", &Fields::identifier},
                                            {"_COMM", &Fields::command},
                                            {"_TRANSPORT", &Fields::transport},
                                            {"MESSAGE_ID", &Fields::message_id},
                                            {"_PID", &Fields::process},
                                            {"TID", &Fields::thread},
                                            {"_UID", &Fields::user},
                                            {"_SYSTEMD_UNIT", &Fields::unit},
                                            {"_SYSTEMD_USER_UNIT", &Fields::user_unit},
                                            {"FILE", &Fields::file}}};

constexpr std::array<std::string_view, 8> kDataNames = {
    "MESSAGE",         "MESSAGE_ID",           "SYSLOG_IDENTIFIER",     "COREDUMP_EXE",
    "COREDUMP_SIGNAL", "COREDUMP_SIGNAL_NAME", "COREDUMP_PACKAGE_NAME", "COREDUMP_PACKAGE_VERSION"};

/// What installs and updates software, by the name under which it logs.
constexpr std::array<std::string_view, 12> kInstallers = {
    "apt",   "apt.systemd.daily", "dnf", "dnf-automatic",     "dpkg",  "flatpak-system-helper",
    "fwupd", "packagekitd",       "rpm", "systemd-sysupdate", "snapd", "unattended-upgrade"};

template <std::size_t N>
bool IsOneOf(std::string_view text, const std::array<std::string_view, N>& texts) {
  return std::ranges::find(texts, text) != texts.end();
}

/// The name of a unit of the system: without what it is an instance of ("systemd-coredump@3-812-0.service"). Empty for
/// the scopes of sessions, and for user@1000.service, in which users run what they like.
std::string_view ServiceOf(std::string_view unit) {
  constexpr std::string_view kService = ".service";
  if (!unit.ends_with(kService)) return {};
  unit.remove_suffix(kService.size());
  unit = unit.substr(0, unit.find('@'));
  return unit == "user" ? std::string_view() : unit;
}

/// Who logged it, out of what journald itself found out: the identifier is free text, by which anybody could pass for
/// the kernel.
std::string_view ProviderOf(const Fields& fields) {
  if (fields.transport == "kernel") return "kernel";
  if (const std::string_view service = ServiceOf(fields.unit); !service.empty()) return service;
  return fields.user == "0" && !fields.command.empty() ? fields.command : "other";
}

std::string ChannelOf(const Fields& fields) {
  static constexpr std::array<std::string_view, 3> kSecurity = {"4", "10", "13"};
  static constexpr std::array<std::string_view, 4> kServices = {"0", "3", "5", "9"};
  const std::string_view name = fields.identifier.empty() ? fields.command : fields.identifier;
  if (fields.transport == "audit" || IsOneOf(fields.facility, kSecurity)) return "Security";
  if (IsOneOf(name, kInstallers)) return "Setup";
  if (fields.transport == "kernel") return "System";
  if (fields.message_id == kCoredump || !fields.user_unit.empty()) return "Application";
  return IsOneOf(fields.facility, kServices) || name == "systemd" || name == kDumpKeeper ? "System" : "Application";
}

std::uint32_t LevelOf(std::string_view priority) {
  static constexpr std::array<std::uint32_t, 8> kLevels = {1, 1, 1, 2, 3, 4, 4, 5};
  constexpr std::uint32_t kInformation = 4;
  const auto number = ParseNumber(priority);
  return number && *number < kLevels.size() ? kLevels[*number] : kInformation;
}

std::uint32_t IdOf(std::string_view message_id) {
  constexpr std::size_t kDigits = 4;
  constexpr int kHexadecimal = 16;
  if (message_id.size() < kDigits) return 0;
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(message_id.data(), message_id.data() + kDigits, id, kHexadecimal);
  return error == std::errc() && end == message_id.data() + kDigits ? id : 0;
}

}  // namespace

bool JournalFieldFilter::Takes(std::string_view field) {
  const std::string_view name = field.substr(0, field.find('='));
  const auto* const place = std::ranges::find(kPlaces, name, &Place::name);
  const auto* const data = std::ranges::find(kDataNames, name);
  if (name.size() == field.size() || (place == kPlaces.end() && data == kDataNames.end())) return false;
  const auto index = place != kPlaces.end() ? place - kPlaces.begin()
                                            : static_cast<std::ptrdiff_t>(kPlaces.size()) + (data - kDataNames.begin());
  const std::uint32_t bit = std::uint32_t{1} << index;
  return (std::exchange(taken_, taken_ | bit) & bit) == 0;
}

LoggedEvent EventOfJournal(std::span<const std::string_view> fields, WallTime time) {
  Fields known;
  LoggedEvent event;
  std::array<std::optional<std::string_view>, kDataNames.size()> data;
  JournalFieldFilter wanted;
  for (const std::string_view field : fields) {
    if (!wanted.Takes(field)) continue;
    const std::size_t name_end = field.find('=');
    const std::string_view name = field.substr(0, name_end);
    const std::string_view value = field.substr(name_end + 1);
    const auto* const place = std::ranges::find(kPlaces, name, &Place::name);
    if (place != kPlaces.end()) known.*(place->value) = value;
    const auto* const kept = std::ranges::find(kDataNames, name);
    if (kept != kDataNames.end()) data[static_cast<std::size_t>(kept - kDataNames.begin())] = value;
  }
  // In an order of ours: the journal's own is not defined.
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (data[i]) event.data.push_back({std::string(kDataNames[i]), std::string(*data[i])});
  }
  event.provider = ProviderOf(known);
  if (event.provider == kDumpKeeper && !known.file.empty()) {
    // "Panic#1 Part1": why, which one and which part of it. Behind that comes what the kernel logged.
    constexpr std::size_t kLongest = 64;
    const std::string_view header = known.file.substr(0, kLongest);
    event.data.push_back({"DUMP", std::string(header.substr(0, header.find('\n')))});
  }
  event.channel = ChannelOf(known);
  event.id = IdOf(known.message_id);
  event.level = LevelOf(known.priority);
  event.time = time;
  event.process = ParseNumber(known.process);
  event.thread = ParseNumber(known.thread);
  return event;
}

}  // namespace platform

#include "platform/windows/file_system_errors.h"

#include <algorithm>

namespace platform::windows {

FileSystemErrors::FileSystemErrors(EventLog& log, std::chrono::milliseconds uptime)
    : reading_(
          log.Query({.channel = "System",
                     .xpath = "*[System[Provider[@Name='Ntfs' or @Name='Microsoft-Windows-Ntfs'] and (EventID=55) and "
                              "TimeCreated[timediff(@SystemTime) <= " +
                              std::to_string(uptime.count()) + "]]]",
                     .value_paths = {"Event/System/EventID"},
                     .limit = kMostFileSystemErrors})) {}

std::optional<std::uint64_t> FileSystemErrors::Of(const std::string& device, std::span<const std::string> names) const {
  if (reading_.failure != EventLogFailure::kNone) return std::nullopt;
  // Older systems give the values no names and put the volume elsewhere, so any of them may be it.
  const auto is_of_it = [&](const EventLogRecord& event) {
    const auto says = [&](const std::string& text) { return event.xml.find(text) != event.xml.npos; };
    if (says(">\\Device\\")) return !device.empty() && says('>' + device + '<');
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) { return says('>' + name + '<'); });
  };
  return static_cast<std::uint64_t>(std::count_if(reading_.records.begin(), reading_.records.end(), is_of_it));
}

}  // namespace platform::windows

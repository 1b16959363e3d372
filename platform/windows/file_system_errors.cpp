#include "platform/windows/file_system_errors.h"

#include <algorithm>

namespace platform::windows {

FileSystemErrors::FileSystemErrors(EventLog& log)
    : reading_(
          log.Query({.channel = "System",
                     .xpath = "*[System[Provider[@Name='Ntfs' or @Name='Microsoft-Windows-Ntfs'] and (EventID=55)]]",
                     .value_paths = {"Event/System/EventID"},
                     .limit = kMostFileSystemErrors})) {}

std::optional<std::uint64_t> FileSystemErrors::Of(std::span<const std::string> names) const {
  if (reading_.failure != EventLogFailure::kNone) return std::nullopt;
  // Older systems give the values no names and put the volume elsewhere, so any of them may be it.
  const auto names_it = [&](const EventLogRecord& event) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& name) { return event.xml.find('>' + name + '<') != event.xml.npos; });
  };
  return static_cast<std::uint64_t>(std::count_if(reading_.records.begin(), reading_.records.end(), names_it));
}

}  // namespace platform::windows

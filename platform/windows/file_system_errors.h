// Errors that NTFS found in its structures. It keeps no count of its own, but logs each.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/event_log.h"

namespace platform::windows {

/// Events looked at, the newest. The log of a volume that is broken fills quickly; more would tell no more.
inline constexpr std::size_t kMostFileSystemErrors = 1000;

/// The errors that a log holds. Immutable: any thread.
class FileSystemErrors {
 public:
  /// Reads events 55 of the source "Ntfs" ("Microsoft-Windows-Ntfs" of later systems) in the channel "System": "A
  /// corruption was discovered in the file system structure on volume ...". May wait as EventLog::Query does.
  explicit FileSystemErrors(EventLog& log);

  /// How many of the events, kMostFileSystemErrors at most, name one of `names`: a volume's place ("C:"), device
  /// ("\Device\HarddiskVolume3") and name (all UTF-8, without a backslash at the end). Absent when the log could not be
  /// read. Those that the log has lost for their age are counted no more.
  std::optional<std::uint64_t> Of(std::span<const std::string> names) const;

 private:
  EventLogReading reading_;
};

}  // namespace platform::windows

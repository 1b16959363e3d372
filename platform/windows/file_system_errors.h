// Errors that NTFS found in its structures. It keeps no count of its own, but logs each.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/event_log.h"

namespace platform::windows {

/// Events looked at, the newest. The log of a volume that is broken fills quickly; more would tell no more.
inline constexpr std::size_t kMostFileSystemErrors = 1000;

/// The errors that the log has of the time since the system started: what it calls a volume is another one's name after
/// the next start. Immutable: any thread.
class FileSystemErrors {
 public:
  /// Reads events 55 of the source "Ntfs" ("Microsoft-Windows-Ntfs" of later systems) in the channel "System" that are
  /// no older than `uptime`: "A corruption was discovered in the file system structure on volume ...". May wait as
  /// EventLog::Query does.
  FileSystemErrors(EventLog& log, std::chrono::milliseconds uptime);

  /// How many of the events, kMostFileSystemErrors of all volumes at most, are of the volume whose device is `device`
  /// ("\Device\HarddiskVolume3") and that is called one of `names` ("C:"), all UTF-8 without a backslash at the end.
  /// Names count where the event names no device: another volume may have had them before. Absent when the log could
  /// not be read.
  std::optional<std::uint64_t> Of(const std::string& device, std::span<const std::string> names) const;

 private:
  EventLogReading reading_;
};

}  // namespace platform::windows

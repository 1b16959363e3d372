// The component in the session of a user: what the user agent's program calls. On Windows only.
#pragma once

#include <filesystem>

#include "tvk/export.h"

namespace TVK {

class TVK_EXPORT UserAgent {
 public:
  /// Where the service is reached: its data folder. Empty, as at first: the service that uses the default places.
  /// Before CreateEventWindow.
  static void SetService(const std::filesystem::path& place);
};

}  // namespace TVK

/// Collects what only a user's session is told, until the service, which must run, wants this process to end, or has
/// ended itself, or the session ends; at once when there is no service, or nothing to collect. Logs, and the file of
/// the version that ran last, lie below %LOCALAPPDATA%\TVK. Called once, on the program's main thread; nothing is
/// thrown.
extern "C" TVK_EXPORT void CreateEventWindow();

// The system's own log, for what the person who looks after the computer must hear: the journal or syslog, Windows' log
// of applications.
#pragma once

#include <string>
#include <string_view>

namespace platform {

enum class SystemLogPriority { kError, kNotice };

/// Enters `line` (UTF-8, without a line feed) as the service's. Does nothing where standard error leads to
/// the system's log already, so that a line which is written there too stands in it once. Never waits on Linux, where a
/// line that is not taken at once is lost. Any thread.
void WriteToSystemLog(SystemLogPriority priority, std::string_view line);

/// What a line on standard error begins with so that the system's log takes it with the priority: empty unless standard
/// error leads there, which the journal of systemd says. Any thread.
std::string SystemLogMark(SystemLogPriority priority);

}  // namespace platform

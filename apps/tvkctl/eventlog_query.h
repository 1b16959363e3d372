// `tvkctl eventlog query`: the query of the Windows event log that settings of a log dataset come to.
#pragma once

#include <iosfwd>
#include <string>

namespace tvkctl {

/// As on the command line, UTF-8; see TVK::WindowsLogsHelper::generateQuery.
struct EventLogOptions {
  std::string channels = {};
  std::string ids = {};
  std::string levels = {};
  std::string window;    ///< Milliseconds, or a number with a unit, "24h".
  bool explain = false;  ///< Words instead of the query.
};

/// Writes the query, or the words, as one line to `out`, in UTF-8, and returns 0; 2, with one line on `errors`, when
/// the settings are none or select nothing.
int RunEventLogQuery(const EventLogOptions& options, std::ostream& out, std::ostream& errors);

}  // namespace tvkctl

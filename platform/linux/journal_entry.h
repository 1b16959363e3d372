// Entries of the systemd journal as events. A pure function; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/logged_event.h"

namespace platform {

/// Tells which fields of one entry EventOfJournal looks at, so that nobody keeps the others: whoever may log chooses
/// how many there are, and an entry has room for hundreds of megabytes.
class JournalFieldFilter {
 public:
  /// The first of each name that is known.
  bool Takes(std::string_view field);

 private:
  std::uint32_t taken_ = 0;  ///< A bit for each name.
};

/// The event that an entry of these fields is, each as "NAME=value" in the journal's own words
/// (systemd.journal-fields(7)); of a name that comes twice the first counts, of fields that it does not know none.
///
/// Channel: "Security" for the facilities auth (4), authpriv (10) and audit (13) and for the audit's own transport;
/// "Setup" for what installs software; "System" for the kernel, systemd, systemd-pstore and the facilities of services,
/// daemon (3), syslog (5) and cron (9), unless a user's own session logged it; "Application" for the rest, and for the
/// notice of a program that crashed. Level: priorities 0..2 are 1, 3 is 2, 4 is 3, 5 and 6 are 4, 7 is 5; without one
/// it is 4. Id: the first four hexadecimal digits of MESSAGE_ID; 0 without one. Provider: only what
/// journald vouches for: "kernel" by the transport; the service of _SYSTEMD_UNIT, without what it is an instance of;
/// the _COMM of a process of root; else "other".
///
/// EventData holds MESSAGE, MESSAGE_ID, SYSLOG_IDENTIFIER and, of a crash, COREDUMP_EXE, COREDUMP_SIGNAL,
/// COREDUMP_SIGNAL_NAME, COREDUMP_PACKAGE_NAME and COREDUMP_PACKAGE_VERSION: no command line, no environment, no user;
/// of a dump that the kernel kept over the boot DUMP, its first line ("Panic#1 Part1", fs/pstore/platform.c).
LoggedEvent EventOfJournal(std::span<const std::string_view> fields, WallTime time);

}  // namespace platform

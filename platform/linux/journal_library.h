// The functions of libsystemd with which the journal is read (sd-journal(3)).
#pragma once

#include <systemd/sd-journal.h>

namespace platform {

/// Loaded when the first journal is opened: with what it depends on the library takes 0.8 MiB, and many machines keep
/// no journal. It stays loaded.
struct JournalLibrary {
  decltype(&::sd_journal_close) close = nullptr;
  decltype(&::sd_journal_enumerate_available_data) enumerate_available_data = nullptr;
  decltype(&::sd_journal_get_cursor) get_cursor = nullptr;
  decltype(&::sd_journal_get_cutoff_realtime_usec) get_cutoff_realtime_usec = nullptr;
  decltype(&::sd_journal_get_fd) get_fd = nullptr;
  decltype(&::sd_journal_get_realtime_usec) get_realtime_usec = nullptr;
  decltype(&::sd_journal_get_usage) get_usage = nullptr;
  decltype(&::sd_journal_next) next = nullptr;
  decltype(&::sd_journal_open) open = nullptr;
  decltype(&::sd_journal_open_directory) open_directory = nullptr;
  decltype(&::sd_journal_process) process = nullptr;
  decltype(&::sd_journal_restart_data) restart_data = nullptr;
  decltype(&::sd_journal_seek_cursor) seek_cursor = nullptr;
  decltype(&::sd_journal_seek_head) seek_head = nullptr;
  decltype(&::sd_journal_seek_realtime_usec) seek_realtime_usec = nullptr;
  decltype(&::sd_journal_test_cursor) test_cursor = nullptr;

  /// Null where the system has no such library, or one that is older than we need. Any thread.
  static const JournalLibrary* Get();
};

}  // namespace platform

// The functions of libsystemd that we call: of sd-journal(3), and one of sd-login(3).
#pragma once

#include <systemd/sd-journal.h>
#include <systemd/sd-login.h>

namespace platform {

/// Loaded when something of it is first needed, a journal or the state of a user: with what it depends on the library
/// takes 0.8 MiB, and many machines keep no journal. It stays loaded.
struct SystemdLibrary {
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
  decltype(&::sd_uid_get_state) uid_get_state = nullptr;

  /// Null where the system has no such library, or one that is older than we need. Any thread.
  static const SystemdLibrary* Get();
};

}  // namespace platform

#include "platform/linux/systemd_library.h"

#include <dlfcn.h>

#include <optional>

namespace platform {
namespace {

template <typename Function>
bool Find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  return function != nullptr;
}

std::optional<SystemdLibrary> Load() {
  void* const library = ::dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return std::nullopt;
  SystemdLibrary found;
  const bool complete = Find(library, "sd_journal_close", found.close) &&
                        Find(library, "sd_journal_enumerate_available_data", found.enumerate_available_data) &&
                        Find(library, "sd_journal_get_cursor", found.get_cursor) &&
                        Find(library, "sd_journal_get_cutoff_realtime_usec", found.get_cutoff_realtime_usec) &&
                        Find(library, "sd_journal_get_fd", found.get_fd) &&
                        Find(library, "sd_journal_get_realtime_usec", found.get_realtime_usec) &&
                        Find(library, "sd_journal_get_usage", found.get_usage) &&
                        Find(library, "sd_journal_next", found.next) && Find(library, "sd_journal_open", found.open) &&
                        Find(library, "sd_journal_open_directory", found.open_directory) &&
                        Find(library, "sd_journal_process", found.process) &&
                        Find(library, "sd_journal_restart_data", found.restart_data) &&
                        Find(library, "sd_journal_seek_cursor", found.seek_cursor) &&
                        Find(library, "sd_journal_seek_head", found.seek_head) &&
                        Find(library, "sd_journal_seek_realtime_usec", found.seek_realtime_usec) &&
                        Find(library, "sd_journal_test_cursor", found.test_cursor) &&
                        Find(library, "sd_uid_get_state", found.uid_get_state);
  if (complete) return found;
  ::dlclose(library);
  return std::nullopt;
}

}  // namespace

const SystemdLibrary* SystemdLibrary::Get() {
  static const std::optional<SystemdLibrary> library = Load();
  return library ? &*library : nullptr;
}

}  // namespace platform

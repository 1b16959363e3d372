#include "windows_kit/surroundings_windows.h"

#include "platform/windows/sys.h"
#include "testing/child_process.h"
#include "windows_kit/machine_windows.h"

namespace windows_kit {

Surroundings::Surroundings(const std::filesystem::path& kit) : work_(kit / "work") {
  std::filesystem::current_path(kit);
  std::filesystem::remove_all(work_);  // of a run that was ended
  std::filesystem::create_directories(work_ / "user");
  SetEnvironmentVariableW(L"TMP", work_.c_str());
  SetEnvironmentVariableW(L"TEMP", work_.c_str());
  // The user agent is a child with this environment. Wine gives every account the token of a session's user, and starts
  // it with that one's own environment, where a test then looks for its logs, too.
  if (WineVersion().empty()) SetEnvironmentVariableW(L"LOCALAPPDATA", (work_ / "user").c_str());
  // Not by its full path, which the C library's narrow environment may be unable to hold.
  SetEnvironmentVariableW(L"TVK_SOURCE_TREE", L"source");
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

Surroundings::~Surroundings() {
  // A scanner may look at a new file for a moment.
  constexpr std::chrono::seconds kPatience(20);
  WaitForState(
      [&] {
        std::error_code error;
        std::filesystem::remove_all(work_, error);
        return !error;
      },
      kPatience);
}

}  // namespace windows_kit

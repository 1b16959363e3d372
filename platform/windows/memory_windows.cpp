#include "platform/memory.h"

#include "platform/windows/doors_windows.h"
#include "platform/windows/sys.h"

namespace platform::windows {
namespace {

class WindowsMemory final : public Memory {
 public:
  std::optional<MemoryStatus> ReadStatus(std::uint32_t* error) override {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    if (!GlobalMemoryStatusEx(&status)) {
      if (error != nullptr) *error = GetLastError();
      return std::nullopt;
    }
    return MemoryStatus{status.dwMemoryLoad, status.ullTotalPhys, status.ullAvailPhys};
  }
};

}  // namespace

std::unique_ptr<Memory> MakeMemory() {
  return std::make_unique<WindowsMemory>();
}

}  // namespace platform::windows

#include "platform/memory.h"

#include <cerrno>

#include "platform/linux/doors_linux.h"
#include "platform/linux/proc_text.h"

namespace platform {
namespace {

class LinuxMemory final : public Memory {
 public:
  explicit LinuxMemory(const Sysroot& root) : root_(root) {}

  std::optional<MemoryStatus> ReadStatus(std::uint32_t* error) override {
    int code = 0;
    const auto text = root_.Read("/proc/meminfo", &code);
    const auto status = text ? DecodeMeminfo(*text) : std::nullopt;
    if (!status && error != nullptr) *error = static_cast<std::uint32_t>(text ? EBADMSG : code);
    return status;
  }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Memory> MakeMemory(const Sysroot& root) {
  return std::make_unique<LinuxMemory>(root);
}

}  // namespace platform

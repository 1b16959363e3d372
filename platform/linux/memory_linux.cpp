#include "platform/memory.h"

#include <cerrno>

#include "platform/linux/doors_linux.h"
#include "platform/linux/proc_text.h"
#include "platform/text_scan.h"

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

  // Documentation/ABI/testing/sysfs-devices-edac
  std::vector<MemoryErrors> ReadErrors() override {
    const std::filesystem::path controllers = "/sys/devices/system/edac/mc";
    std::vector<MemoryErrors> errors;
    for (const std::uint32_t number : root_.NumberedEntries(controllers, "mc")) {
      const std::string name = "mc" + std::to_string(number);
      const auto corrected = ParseNumber(root_.ReadLine(controllers / name / "ce_count"));
      const auto uncorrected = ParseNumber(root_.ReadLine(controllers / name / "ue_count"));
      if (corrected || uncorrected) errors.push_back({name, corrected.value_or(0), uncorrected.value_or(0)});
    }
    return errors;
  }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Memory> MakeMemory(const Sysroot& root) {
  return std::make_unique<LinuxMemory>(root);
}

}  // namespace platform

#include "platform/nvme_command.h"

namespace platform {
namespace {

// NVM Express Base Specification, "Opcodes for Admin Commands".
constexpr std::uint8_t kGetLogPage = 0x02;
constexpr std::uint8_t kIdentify = 0x06;
constexpr std::uint8_t kDeviceSelfTest = 0x14;

// The controller and all its namespaces. Logs are the controller's own, and drives refuse them of one namespace.
constexpr std::uint32_t kAllNamespaces = 0xFFFFFFFF;

NvmeCommand LogPage(std::uint32_t id, std::uint32_t bytes) {
  const std::uint32_t dwords = bytes / 4 - 1;  // counted from zero, below 64 Ki here
  return {kGetLogPage, kAllNamespaces, dwords << 16 | id, bytes};
}

NvmeCommand SelfTest(std::uint32_t code) {
  return {kDeviceSelfTest, kAllNamespaces, code, 0};
}

}  // namespace

std::optional<NvmeCommand> NvmeCommandOf(DrivePage page) {
  switch (page) {
    case DrivePage::kNvmeController:
      return NvmeCommand{kIdentify, 0, 0x01, 4096};
    case DrivePage::kNvmeHealth:
      return LogPage(0x02, 512);
    case DrivePage::kNvmeSelfTestLog:
      return LogPage(0x06, 564);
    case DrivePage::kAtaIdentify:
    case DrivePage::kAtaSmartValues:
    case DrivePage::kAtaSmartThresholds:
    case DrivePage::kAtaSelfTestLog:
      break;
  }
  return std::nullopt;
}

std::optional<NvmeCommand> NvmeCommandOf(DriveAction action) {
  if (action == DriveAction::kNvmeStartShortSelfTest) return SelfTest(0x1);
  if (action == DriveAction::kNvmeAbortSelfTest) return SelfTest(0xF);
  return std::nullopt;
}

DriveAnswer NvmeOutcome(std::uint32_t status) {
  // NVM Express Base Specification, "Status Field Definition": status code type and status code; the bits above say
  // only whether trying again may help and where more is told.
  const std::uint32_t code = status & 0x7FF;
  constexpr std::uint32_t kInvalidOpcode = 0x001;
  constexpr std::uint32_t kInvalidField = 0x002;
  constexpr std::uint32_t kInvalidLogPage = 0x109;
  if (code == 0) return {};
  const bool unknown = code == kInvalidOpcode || code == kInvalidField || code == kInvalidLogPage;
  return {unknown ? DriveResult::kNotSupported : DriveResult::kRefused, status & 0x7FFF};
}

}  // namespace platform

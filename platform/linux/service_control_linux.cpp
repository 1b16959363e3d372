#include "platform/service_control.h"

namespace platform {

// A service here is a unit of systemd's: the package brings it, systemctl runs it.

std::string WhyNoServiceReaches(const std::filesystem::path&) {
  return {};
}

std::string InstallService(const ServiceInstallation&) {
  return std::string(kNoServiceManager);
}

std::string UninstallService(std::chrono::milliseconds) {
  return std::string(kNoServiceManager);
}

std::string LaunchService(const std::vector<std::wstring>&, std::chrono::milliseconds) {
  return std::string(kNoServiceManager);
}

std::string HaltService(std::chrono::milliseconds) {
  return std::string(kNoServiceManager);
}

ServiceReport ReadServiceReport() {
  return {.problem = std::string(kNoServiceManager)};
}

ServiceRun RunServiceProgram(const ServiceProgram&) {
  return {.problem = std::string(kNoServiceManager)};
}

}  // namespace platform

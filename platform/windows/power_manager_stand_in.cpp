// The power manager's library, as far as it is asked. Battery 1 is well; of battery 2 nothing is known; asked about
// battery 3 it writes further than it may.
#include <cstdint>
#include <cstring>

namespace {

constexpr std::uint32_t kOverwritten = 3;

std::size_t Size(std::size_t size, std::uint32_t battery) {
  return battery == kOverwritten ? size + 1 : size;
}

}  // namespace

extern "C" {

__declspec(dllexport) std::uint32_t SM_GetSmartBatteryStatusEx(std::uint32_t battery, void* status, void* information) {
  const auto* const fresh = static_cast<const unsigned char*>(status);
  if (battery == 2 || fresh[0] != 0 || fresh[255] != 0) return 5;
  std::memset(status, 0x11, 200);
  std::memset(information, 0x22, Size(256, battery));
  return 0x12340000;
}

__declspec(dllexport) std::uint32_t SM_GetFirmwareInformation(std::uint32_t battery, std::uint16_t* words) {
  if (battery == 2) return 0;
  const std::uint16_t version[] = {0x0102, 0xABCD, 0, 7, 0};
  std::memcpy(words, version, Size(4, battery) * sizeof(version[0]));
  return 1;
}

}  // extern "C"

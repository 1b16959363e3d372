#include "platform/firmware.h"

#include "platform/windows/doors_windows.h"
#include "platform/windows/registry.h"

namespace platform::windows {
namespace {

constexpr wchar_t kBiosKey[] = L"HARDWARE\\DESCRIPTION\\System\\BIOS";

std::string BiosText(const wchar_t* name) {
  return RegistryText(HKEY_LOCAL_MACHINE, kBiosKey, name);
}

// "major.minor" of two values. 255 in both stands for "not told" (DMTF DSP0134, 7.1).
std::string BiosRelease(const wchar_t* major_name, const wchar_t* minor_name) {
  const auto major = RegistryNumber(HKEY_LOCAL_MACHINE, kBiosKey, major_name);
  const auto minor = RegistryNumber(HKEY_LOCAL_MACHINE, kBiosKey, minor_name);
  if (!major || !minor || (*major == 255 && *minor == 255)) return {};
  return std::to_string(*major) + "." + std::to_string(*minor);
}

class WindowsFirmware final : public Firmware {
 public:
  std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error) override {
    constexpr DWORD kProvider = 'R' << 24 | 'S' << 16 | 'M' << 8 | 'B';
    std::vector<std::uint8_t> table;
    for (;;) {
      const UINT size = GetSystemFirmwareTable(kProvider, 0, table.data(), static_cast<DWORD>(table.size()));
      if (size == 0) {
        if (error != nullptr) *error = GetLastError();
        return {};
      }
      const bool fits = size <= table.size();
      table.resize(size);
      if (fits) return table;
    }
  }

  FirmwareFacts ReadFacts() override {
    FirmwareFacts facts;
    facts.manufacturer = BiosText(L"SystemManufacturer");
    facts.product_name = BiosText(L"SystemProductName");
    facts.product_version = BiosText(L"SystemVersion");
    facts.product_family = BiosText(L"SystemFamily");
    facts.product_sku = BiosText(L"SystemSKU");
    facts.board_manufacturer = BiosText(L"BaseBoardManufacturer");
    facts.board_product = BiosText(L"BaseBoardProduct");
    facts.board_version = BiosText(L"BaseBoardVersion");
    if (const auto type = RegistryNumber(HKEY_LOCAL_MACHINE, kBiosKey, L"EnclosureType")) {
      facts.chassis_type = std::to_string(*type);
    }
    facts.bios_vendor = BiosText(L"BIOSVendor");
    facts.bios_version = BiosText(L"BIOSVersion");
    facts.bios_date = BiosText(L"BIOSReleaseDate");
    facts.bios_release = BiosRelease(L"BiosMajorRelease", L"BiosMinorRelease");
    facts.ec_release = BiosRelease(L"ECFirmwareMajorRelease", L"ECFirmwareMinorRelease");
    return facts;
  }
};

}  // namespace

std::unique_ptr<Firmware> MakeFirmware() {
  return std::make_unique<WindowsFirmware>();
}

}  // namespace platform::windows

#include "client/identity/machine_information.h"

#include "client/identity/country_code_agent.h"
#include "client/identity/iso_tables.h"
#include "client/identity/locale_name.h"
#include "client/identity/machine_firmware.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/machine.h"
#include "platform/region.h"
#include "platform/system_facts.h"

using TVK::String;

struct MachineInformation::Facts {
  TVK::SmbiosIdentity firmware;
  platform::OperatingSystemFacts system;
  platform::RegionFacts region;
  std::wstring read_at;
};

namespace {

std::wstring Wide(const std::string& text) {
  return String::UTF8ToUTF16(text);
}

std::wstring NameOf(std::span<const TVK::IsoEntry> table, const std::string& code) {
  const TVK::IsoEntry* entry = TVK::FindIsoEntry(table, code);
  return entry == nullptr ? std::wstring() : String::UTF8ToUTF16(entry->name);
}

}  // namespace

std::shared_ptr<const MachineInformation::Facts> MachineInformation::Get() const {
  const std::lock_guard lock(mutex_);
  if (facts_ == nullptr) {
    facts_ = std::make_shared<const Facts>(Facts{TVK::ReadMachineFirmware(machine_.firmware()),
                                                 machine_.system().ReadOperatingSystem(), machine_.region().ReadFacts(),
                                                 TVK::System::GetTime(clock_)});
  }
  return facts_;
}

void MachineInformation::ReInitialize(bool now) {
  {
    const std::lock_guard lock(mutex_);
    facts_ = nullptr;
  }
  if (now) Get();
}

std::wstring MachineInformation::device_model() const {
  return Get()->firmware.product_name;
}
std::wstring MachineInformation::device_manufacturer() const {
  return Get()->firmware.manufacturer;
}
std::wstring MachineInformation::device_family() const {
  return Get()->firmware.product_family;
}
std::wstring MachineInformation::device_brand() const {
  const std::wstring family = device_family();
  return family.substr(0, family.find(L' '));
}
std::wstring MachineInformation::device_subbrand() const {
  const std::wstring family = device_family();
  const std::size_t blank = family.find(L' ');
  return blank == std::wstring::npos ? std::wstring() : family.substr(blank + 1);
}
std::wstring MachineInformation::device_mt() const {
  return Get()->firmware.product_sku;
}
std::wstring MachineInformation::device_enclosuretype() const {
  const std::uint8_t type = Get()->firmware.chassis_type;
  return type == 0 ? std::wstring() : std::to_wstring(type);
}
std::wstring MachineInformation::device_bios_version() const {
  return Get()->firmware.bios_version;
}
std::wstring MachineInformation::device_bios_version_short() const {
  return Get()->firmware.bios_release;
}
std::wstring MachineInformation::device_bios_release_date() const {
  return Get()->firmware.bios_date;
}
std::wstring MachineInformation::device_ec_version() const {
  return Get()->firmware.ec_release;
}
std::wstring MachineInformation::device_ec_release_date() const {
  return {};
}
std::wstring MachineInformation::device_smbios_version() const {
  return Get()->firmware.smbios_version;
}
std::wstring MachineInformation::device_extension_keyvalue() const {
  return {};
}
std::wstring MachineInformation::device_info_datetime() const {
  return Get()->read_at;
}
std::wstring MachineInformation::os_name() const {
  return Wide(Get()->system.name);
}
std::wstring MachineInformation::os_version() const {
  return Wide(Get()->system.version);
}
std::wstring MachineInformation::os_language() const {
  return Wide(Get()->system.display_language);
}
std::wstring MachineInformation::os_region() const {
  return Wide(Get()->region.nation);
}
std::wstring MachineInformation::os_update_title() const {
  return Wide(Get()->system.update_title);
}
std::wstring MachineInformation::os_update_description() const {
  return Wide(Get()->system.update_description);
}

TVK::SmbiosIdentity MachineInformation::firmware() const {
  return Get()->firmware;
}

platform::RegionFacts MachineInformation::region() const {
  return Get()->region;
}

TVK::DeviceTraits MachineInformation::traits() const {
  return {device_model(), device_manufacturer(), device_brand(), os_name(), os_version()};
}

RegionInformation::Facts RegionInformation::Describe(const platform::RegionFacts& region) const {
  const TVK::LocaleParts locale = TVK::SplitLocaleName(region.locale_name).value_or(TVK::LocaleParts{});
  // The nation is the user's own choice; where it says nothing, the locale's territory stands for it.
  std::string country = String::UTF16ToUTF8(CountryCodeAgent(region_).ValidateCountryCodeKey(Wide(region.nation)));
  if (country.empty()) country = locale.territory;
  return {.region_name = Wide(region.locale_name),
          .country_name = NameOf(TVK::IsoCountries(), country),
          .country_code = Wide(country),
          .language_name = NameOf(TVK::IsoLanguages(), locale.language),
          .language_code = Wide(locale.language),
          .region_info_datetime = TVK::System::GetTime(clock_)};
}

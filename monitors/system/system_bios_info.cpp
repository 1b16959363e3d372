#include "monitors/system/system_bios_info.h"

#include "monitors/system/bios_date.h"

void SystemBiosInfo::CollectBiosInfo(const TVK::Log& log) {
  set_manufacturer(machine_->device_manufacturer());
  set_biosName(machine_->device_bios_version());
  set_embeddedControllerVersion(machine_->device_ec_version());
  set_smbiosVersion(machine_->device_smbios_version());
  set_system_biosversion(machine_->device_bios_version_short());
  set_biosReleaseDate(ConvertDateFormat(machine_->device_bios_release_date(), log));
  set_ecReleaseDate(ConvertDateFormat(machine_->device_ec_release_date(), log));
}

ItemData SystemBiosInfo::ToItemData() const {
  ItemData data = {{L"BIOSManufacturer", manufacturer()},
                   {L"BIOSName", biosName()},
                   {L"EmbeddedControllerVersion", embeddedControllerVersion()},
                   {L"SMBIOSVersion", smbiosVersion()},
                   {L"SystemBIOSVersion", system_biosversion()},
                   {L"BIOSReleaseDate", biosReleaseDate()},
                   {L"ECReleaseDate", ecReleaseDate()}};
  std::erase_if(data, [](const auto& entry) { return entry.second.empty(); });
  return data;
}

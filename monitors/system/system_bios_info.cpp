#include "monitors/system/system_bios_info.h"

#include "monitors/system/bios_date.h"

void SystemBiosInfo::CollectBiosInfo(const TVK::Log& log) {
  Describe(machine_->firmware(), log);
}

void SystemBiosInfo::Describe(const TVK::SmbiosIdentity& firmware, const TVK::Log& log) {
  set_manufacturer(firmware.manufacturer);
  set_biosName(firmware.bios_version);
  set_embeddedControllerVersion(firmware.ec_release);
  set_smbiosVersion(firmware.smbios_version);
  set_system_biosversion(firmware.bios_release);
  set_biosReleaseDate(TVK::ConvertDateFormat(firmware.bios_date, log));
  // No table tells when the embedded controller's firmware was released.
  set_ecReleaseDate({});
}

ItemData SystemBiosInfo::AllKeys() const {
  return {{L"BIOSManufacturer", manufacturer()},
          {L"BIOSName", biosName()},
          {L"EmbeddedControllerVersion", embeddedControllerVersion()},
          {L"SMBIOSVersion", smbiosVersion()},
          {L"SystemBIOSVersion", system_biosversion()},
          {L"BIOSReleaseDate", biosReleaseDate()},
          {L"ECReleaseDate", ecReleaseDate()}};
}

ItemData SystemBiosInfo::ToItemData() const {
  ItemData data = AllKeys();
  std::erase_if(data, [](const auto& entry) { return entry.second.empty(); });
  return data;
}

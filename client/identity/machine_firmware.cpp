#include "client/identity/machine_firmware.h"

#include <cstdlib>

#include "client/text/string.h"
#include "platform/firmware.h"

namespace TVK {

namespace {

// A release whose numbers are told, and nothing for another: 255 stands for one that is not (DMTF DSP0134, 7.1), and
// some firmware puts a 0 beside it.
std::string ToldRelease(const std::string& release) {
  return release.starts_with("255.") || release.ends_with(".255") ? std::string() : release;
}

}  // namespace

SmbiosIdentity ReadMachineFirmware(platform::Firmware& firmware) {
  SMBiosTool tool(firmware);
  tool.Initialize();  // Of a damaged table the sound begin counts; without a table the identity is empty.
  SmbiosIdentity identity = ReadSmbiosIdentity(tool);
  const platform::FirmwareFacts facts = firmware.ReadFacts();
  const auto fill = [](std::wstring& gap, const std::string& fact) {
    if (gap.empty()) gap = String::UTF8ToUTF16(fact);
  };
  fill(identity.manufacturer, facts.manufacturer);
  fill(identity.product_name, facts.product_name);
  fill(identity.product_version, facts.product_version);
  fill(identity.product_family, facts.product_family);
  fill(identity.product_sku, facts.product_sku);
  fill(identity.board_manufacturer, facts.board_manufacturer);
  fill(identity.board_product, facts.board_product);
  fill(identity.board_version, facts.board_version);
  fill(identity.bios_vendor, facts.bios_vendor);
  fill(identity.bios_version, facts.bios_version);
  fill(identity.bios_date, facts.bios_date);
  fill(identity.bios_release, ToldRelease(facts.bios_release));
  fill(identity.ec_release, ToldRelease(facts.ec_release));
  if (identity.chassis_type == 0)
    identity.chassis_type = static_cast<std::uint8_t>(std::strtol(facts.chassis_type.c_str(), nullptr, 10));
  return identity;
}

}  // namespace TVK

// Who made the machine and its firmware, from the SMBIOS structures 0 to 3.
#pragma once

#include <cstdint>
#include <string>

#include "client/smbios/smbios_tool.h"

namespace TVK {

/// Every text is empty where the table does not tell. Serial numbers and the UUID leave this decoder hashed only.
struct SmbiosIdentity {
  std::wstring smbios_version;  ///< "3.2".

  std::wstring bios_vendor;
  std::wstring bios_version;
  std::wstring bios_date;     ///< As the firmware gives it, "mm/dd/yyyy" or "mm/dd/yy".
  std::wstring bios_release;  ///< "major.minor" of the system firmware.
  std::wstring ec_release;    ///< "major.minor" of the embedded controller.

  std::wstring manufacturer;
  std::wstring product_name;
  std::wstring product_version;
  std::wstring serial_hash;  ///< HashUtility::Hash of the serial number.
  std::wstring uuid_hash;    ///< HashUtility::Hash of the UUID as text, in small letters.
  std::wstring product_sku;
  std::wstring product_family;

  std::wstring board_manufacturer;
  std::wstring board_product;
  std::wstring board_version;
  std::wstring board_serial_hash;

  std::uint8_t chassis_type = 0;  ///< DSP0134, 7.4.1, without the lock bit; 0 when the table does not tell.

  bool operator==(const SmbiosIdentity&) const = default;
};

/// Decodes the first structure of each type. A table that is not loaded or holds no whole structure gives an empty
/// identity.
SmbiosIdentity ReadSmbiosIdentity(const SMBiosTool& tool);

}  // namespace TVK

// What the firmware of a machine tells. Any thread. Texts are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// Facts about firmware and system that the operating system keeps readable for everybody, used where the SMBIOS table
/// itself cannot be read. Empty texts where the system tells nothing.
struct FirmwareFacts {
  std::string manufacturer;
  std::string product_name;
  std::string product_version;
  std::string product_family;
  std::string product_sku;
  std::string board_manufacturer;
  std::string board_product;
  std::string board_version;
  std::string chassis_type;  ///< Decimal text of the SMBIOS enclosure type (DMTF DSP0134, 7.4.1).
  std::string bios_vendor;
  std::string bios_version;
  std::string bios_date;     ///< As the firmware gives it, "mm/dd/yyyy".
  std::string bios_release;  ///< "major.minor".
  std::string ec_release;    ///< "major.minor".
};

class Firmware {
 public:
  Firmware() = default;
  Firmware(const Firmware&) = delete;
  Firmware& operator=(const Firmware&) = delete;
  virtual ~Firmware() = default;

  /// The raw SMBIOS data in the form that Windows gives for the firmware table provider 'RSMB': calling method, major,
  /// minor, DMI revision (one byte each), table length (32 bits, little endian), then the structures. The length is
  /// that which the firmware announces, where it announces an exact one; fewer bytes may follow.
  /// Empty when the machine has none or does not let us read it; `error`, when given, then receives the error number,
  /// which for a damaged entry point (Linux) is the one of std::errc::bad_message.
  virtual std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error = nullptr) = 0;

  virtual FirmwareFacts ReadFacts() = 0;
};

}  // namespace platform

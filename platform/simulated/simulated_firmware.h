// Firmware that a test scripts.
#pragma once

#include "platform/firmware.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// The defaults are those of a plausible small laptop.
struct SimulatedFirmwareState {
  std::vector<std::uint8_t> smbios = {};
  FirmwareFacts facts{.manufacturer = "Contoso",
                      .product_name = "Notebook 14",
                      .product_version = "1.0",
                      .product_family = "Notebook",
                      .product_sku = "NB14",
                      .board_manufacturer = "Contoso",
                      .board_product = "NB14G3",
                      .board_version = "Rev 2",
                      .chassis_type = "10",
                      .bios_vendor = "Contoso",
                      .bios_version = "C14ET50W (1.20 )",
                      .bios_date = "03/04/2025",
                      .bios_release = "1.20",
                      .ec_release = "1.10"};
};

class SimulatedFirmware final : public Firmware, public Scripted<SimulatedFirmwareState> {
 public:
  std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error) override {
    auto table = Get().smbios;
    if (table.empty() && error != nullptr) *error = kErrorNotSupported;
    return table;
  }
  FirmwareFacts ReadFacts() override { return Get().facts; }

  void SetSmbios(std::vector<std::uint8_t> table) {
    Change([&](SimulatedFirmwareState& state) { state.smbios = std::move(table); });
  }
};

}  // namespace platform

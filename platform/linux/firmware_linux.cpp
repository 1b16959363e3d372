#include "platform/firmware.h"

#include <cerrno>
#include <span>

#include "platform/linux/doors_linux.h"
#include "platform/smbios_form.h"

namespace platform {
namespace {

void Store(std::uint32_t* error, int code) {
  if (error != nullptr) *error = static_cast<std::uint32_t>(code);
}

std::span<const std::uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

class LinuxFirmware final : public Firmware {
 public:
  explicit LinuxFirmware(const Sysroot& root) : root_(root) {}

  std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error) override {
    int code = 0;
    const auto entry_text = root_.Read("/sys/firmware/dmi/tables/smbios_entry_point", &code);
    const auto table = entry_text ? root_.Read("/sys/firmware/dmi/tables/DMI", &code) : std::nullopt;
    if (!table) {
      Store(error, code);
      return {};
    }
    const auto entry = DecodeSmbiosEntryPoint(BytesOf(*entry_text));
    if (!entry) {
      Store(error, EBADMSG);
      return {};
    }
    return MakeRsmb(*entry, BytesOf(*table));
  }

  FirmwareFacts ReadFacts() override {
    const std::filesystem::path id = "/sys/class/dmi/id";
    return {.manufacturer = root_.ReadLine(id / "sys_vendor"),
            .product_name = root_.ReadLine(id / "product_name"),
            .product_version = root_.ReadLine(id / "product_version"),
            .product_family = root_.ReadLine(id / "product_family"),
            .product_sku = root_.ReadLine(id / "product_sku"),
            .board_manufacturer = root_.ReadLine(id / "board_vendor"),
            .board_product = root_.ReadLine(id / "board_name"),
            .board_version = root_.ReadLine(id / "board_version"),
            .chassis_type = root_.ReadLine(id / "chassis_type"),
            .bios_vendor = root_.ReadLine(id / "bios_vendor"),
            .bios_version = root_.ReadLine(id / "bios_version"),
            .bios_date = root_.ReadLine(id / "bios_date"),
            .bios_release = root_.ReadLine(id / "bios_release"),
            .ec_release = root_.ReadLine(id / "ec_firmware_release")};
  }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Firmware> MakeFirmware(const Sysroot& root) {
  return std::make_unique<LinuxFirmware>(root);
}

}  // namespace platform

#include "platform/drive_descriptor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A descriptor with the texts behind its fixed part; an empty text has the offset 0.
Bytes Descriptor(std::uint32_t bus, const std::vector<std::string>& texts, bool removable = false) {
  Bytes bytes(40);
  const auto put = [&bytes](std::size_t at, std::size_t number) {
    for (int byte = 0; byte < 4; ++byte)
      bytes[at + byte] = static_cast<std::uint8_t>(number >> 8 * byte);
  };
  bytes[10] = removable;
  put(28, bus);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (texts[i].empty()) continue;
    put(12 + 4 * i, bytes.size());
    bytes.insert(bytes.end(), texts[i].begin(), texts[i].end());
    bytes.push_back(0);
  }
  return bytes;
}

TEST(DriveDescriptorTest, TellsBusModelAndFirmware) {
  using Drive = DriveListing;
  // The last text ends with the bytes.
  Bytes open_end = Descriptor(0x11, {"", "Disk", "1.0"});
  open_end.pop_back();
  Bytes outside = Descriptor(0x11, {"Maker", "Disk", "1.0"});
  outside[12] = static_cast<std::uint8_t>(outside.size());
  Bytes inside_the_numbers = Descriptor(0x11, {"Maker", "Disk", "1.0"});
  inside_the_numbers[12] = 35;
  Bytes far = Descriptor(0x11, {"Maker", "Disk", "1.0"});
  far[15] = 0xFF;
  struct Row {
    const char* what;
    Bytes bytes;
    Drive drive;
  };
  for (const Row& row : {
           Row{"NVMe", open_end, {.path = {}, .bus = DriveBus::kNvme, .model = "Disk", .firmware_version = "1.0"}},
           Row{"SATA",
               Descriptor(0x0B, {"ATA     ", "Disk 2TB  ", " CC43"}),
               {.path = {}, .bus = DriveBus::kAta, .model = "Disk 2TB", .firmware_version = "CC43"}},
           Row{"ATA", Descriptor(0x03, {}), {.path = {}, .bus = DriveBus::kAta}},
           Row{"stick",
               Descriptor(0x07, {"Litware ", "Stick\x1b\x80"}, true),
               {.path = {}, .bus = DriveBus::kUsb, .model = "Litware Stick", .removable = true}},
           Row{"SAS", Descriptor(0x13, {"Litware", "  "}), {.path = {}, .bus = DriveBus::kScsi, .model = "Litware"}},
           Row{"RAID", Descriptor(0x08, {}), {.path = {}, .bus = DriveBus::kScsi}},
           Row{"card", Descriptor(0x0C, {}), {.path = {}, .bus = DriveBus::kCard}},
           Row{"virtual", Descriptor(0x0E, {}), {}},
           Row{"of the future", Descriptor(0x100, {}), {}},
           Row{"text behind the end",
               outside,
               {.path = {}, .bus = DriveBus::kNvme, .model = "Disk", .firmware_version = "1.0"}},
           Row{"text far behind the end",
               far,
               {.path = {}, .bus = DriveBus::kNvme, .model = "Disk", .firmware_version = "1.0"}},
           Row{"text among the numbers",
               inside_the_numbers,
               {.path = {}, .bus = DriveBus::kNvme, .model = "Disk", .firmware_version = "1.0"}},
       }) {
    SCOPED_TRACE(row.what);
    const auto drive = DecodeDriveDescriptor(row.bytes);
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->bus, row.drive.bus);
    EXPECT_EQ(drive->model, row.drive.model);
    EXPECT_EQ(drive->firmware_version, row.drive.firmware_version);
    EXPECT_EQ(drive->removable, row.drive.removable);
  }
  for (const auto& [told, number] : std::vector<std::pair<std::string, std::string>>{
           {"  WD-1234  ", "WD-1234"},
           {"", ""},
           {"   ", ""},
           {"2020202057202d44323134333635383730394241", "WD-1234567890AB"},  // of the characters, in pairs
           {"2020202057202D44323134333635383730394241", "WD-1234567890AB"},
           {"4457312d323334353637383930412020202020 1", "4457312d323334353637383930412020202020 1"},
           {"2020202057202d4432313433363538373039424g", "2020202057202d4432313433363538373039424g"},
           {"2020202057202d4432313433363538373039421F", "2020202057202d4432313433363538373039421F"},
           {"2020202057202d443231343336353837303942", "2020202057202d443231343336353837303942"},
       }) {
    EXPECT_EQ(DecodeDriveDescriptor(Descriptor(0x0B, {"", "", "", told}))->serial_number, number);
  }
  for (const std::uint32_t made_of_others : {0x0F, 0x10})
    EXPECT_FALSE(DecodeDriveDescriptor(Descriptor(made_of_others, {"Msft", "Virtual Disk"})));
  const Bytes fixed = Descriptor(0x11, {});
  EXPECT_TRUE(DecodeDriveDescriptor(std::span(fixed).first(36)));
  EXPECT_FALSE(DecodeDriveDescriptor(std::span(fixed).first(35)));
  Bytes adapter(25);
  adapter[24] = 0x11;
  EXPECT_EQ(DecodeAdapterBus(adapter), DriveBus::kNvme);
  EXPECT_EQ(DecodeAdapterBus(std::span(adapter).first(24)), DriveBus::kOther);
}

}  // namespace
}  // namespace platform

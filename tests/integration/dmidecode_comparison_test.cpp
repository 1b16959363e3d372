// Our decoding of generated tables beside that of `dmidecode --from-dump`, for sound tables and for damaged ones.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "client/smbios/smbios_dump.h"
#include "client/smbios/smbios_identity.h"
#include "monitors/system/memory_info.h"
#include "testing/smbios_builder.h"
#include "testing/temp_folder.h"

namespace {

using testing_support::ArraySpec;
using testing_support::Bytes;
using testing_support::DeviceSpec;
using testing_support::Structure;
using testing_support::Table;

using Random = std::mt19937;

std::uint32_t Below(Random& random, std::uint32_t end) {
  return static_cast<std::uint32_t>(random() % end);
}

template <typename T>
T OneOf(Random& random, std::initializer_list<T> values) {
  return values.begin()[Below(random, static_cast<std::uint32_t>(values.size()))];
}

/// A table as some computer might have it: every published length, every way to write a size, several arrays.
Table RandomTable(Random& random) {
  Table table;
  Structure bios(0, OneOf<std::uint8_t>(random, {0x12, 0x18, 0x1A}), 0);
  bios.Text(4, "Contoso").Text(5, "C1ET" + std::to_string(Below(random, 100)) + "W").Text(8, "03/04/2025");
  bios.Put(0x14, OneOf(random, {1, 0xFF}), 1).Put(0x15, 20, 1).Put(0x16, OneOf(random, {1, 0xFF}), 1).Put(0x17, 9, 1);
  Structure system(1, OneOf<std::uint8_t>(random, {0x08, 0x19, 0x1B}), 1);
  system.Text(4, "Contoso").Text(5, "Notebook 14  ").Text(0x19, "NB14").Text(0x1A, "Notebook");
  table.Add(bios).Add(system);
  const std::uint32_t arrays = 1 + Below(random, 3);
  for (std::uint32_t i = 0; i < arrays; ++i) {
    ArraySpec array{.handle = static_cast<std::uint16_t>(0x1000 + i)};
    array.error_correction = static_cast<std::uint8_t>(Below(random, 9));
    array.length = OneOf<std::uint8_t>(random, {0x0F, 0x17});
    array.capacity_kb = array.length == 0x17 && Below(random, 2) == 0 ? 4ull << 30 : (1 + Below(random, 64)) << 20;
    table.Add(MemoryArray(array));
  }
  const std::uint32_t devices = Below(random, 20);
  for (std::uint32_t i = 0; i < devices; ++i) {
    // Whether that is the end depends on the entry point.
    if (Below(random, 40) == 0) table.Add(Structure(127, 4, static_cast<std::uint16_t>(0x7F00 + i)));
    table.Add(
        MemoryDevice(DeviceSpec{.handle = static_cast<std::uint16_t>(0x1100 + i),
                                .array = static_cast<std::uint16_t>(0x1000 + Below(random, arrays + 1)),
                                .size = OneOf<std::uint16_t>(random, {0, 512, 16384, 0x8400, 0x8040, 0x7FFF, 0xFFFF}),
                                .extended_size = OneOf<std::uint32_t>(random, {32768, 65536, 131072, 524288}),
                                .type = static_cast<std::uint8_t>(Below(random, 36)),
                                .speed = OneOf<std::uint16_t>(random, {0, 1600, 4800}),
                                .clock_speed = OneOf<std::uint16_t>(random, {0, 1333, 4400}),
                                .locator = "DIMM " + std::to_string(i),
                                .bank = OneOf<std::string>(random, {"BANK 0", "P0 CHANNEL A  "}),
                                .manufacturer = OneOf<std::string>(random, {"Contoso", "Fabrikam   "}),
                                .length = OneOf<std::uint8_t>(random, {0x15, 0x1B, 0x1C, 0x22, 0x28, 0x54, 0x5C})}));
  }
  return table.End();
}

/// What dmidecode prints: handle, and of the structure "Key: value" by key.
struct Printed {
  int type = 0;
  std::map<std::string, std::string> fields;
};
struct PrintedTable : std::map<unsigned, Printed> {
  std::string version;  ///< Of the table, "2.8".
};

std::string Trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

PrintedTable RunDmidecode(const std::string& file) {
  const std::string command = std::string(TVK_DMIDECODE) + " --from-dump '" + file + "' 2>&1";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  PrintedTable table;
  Printed* current = nullptr;
  char line[4096];
  while (pipe && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
    unsigned handle = 0;
    unsigned major = 0;
    unsigned minor = 0;
    int type = 0;
    if (std::sscanf(line, "SMBIOS %u.%u present", &major, &minor) == 2) {
      table.version = std::to_string(major) + '.' + std::to_string(minor);
    } else if (std::sscanf(line, "Handle 0x%x, DMI type %d", &handle, &type) == 2) {
      current = &table.try_emplace(handle).first->second;
      current->type = type;
    } else if (const std::string text = line; current != nullptr && text.starts_with('\t')) {
      const auto colon = text.find(": ");
      if (colon != std::string::npos) {
        current->fields.emplace(Trim(text.substr(0, colon)), Trim(text.substr(colon + 2, text.size() - colon - 3)));
      }
    }
  }
  return table;
}

/// The kibibytes of "16 GB" or of "16384MB".
std::uint64_t Kib(const std::string& text) {
  std::istringstream words(text);
  std::uint64_t number = 0;
  std::string unit;
  words >> number >> unit;
  for (const char* const letter : {"kK", "M", "G", "T"}) {
    if (std::string(letter).find(unit[0]) != std::string::npos) return number;
    number <<= 10;
  }
  return 0;
}

/// Our text as dmidecode prints it, which shows only what a terminal can.
std::string Narrow(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t c : text)
    narrow += c >= 32 && c < 127 ? static_cast<char>(c) : '.';
  return Trim(narrow);
}

/// Field `key` as we would have it; empty where dmidecode says that there is none.
std::string Field(const Printed& printed, const std::string& key) {
  const auto found = printed.fields.find(key);
  if (found == printed.fields.end() || found->second == "Not Specified" || found->second == "<BAD INDEX>") return "";
  return found->second;
}

std::string Speed(const Printed& printed, const std::string& key) {
  const std::string text = Field(printed, key);
  return text == "Unknown" ? "0MHz" : text.empty() ? "" : text.substr(0, text.find(' ')) + "MHz";
}

void ExpectSameSlot(const MemorySlot& slot, const Printed& device) {
  SCOPED_TRACE(testing::Message() << "device " << std::hex << slot.handle);
  const std::string size = Field(device, "Size");
  if (size == "Unknown") {
    EXPECT_EQ(slot.size, L"Unknown");
  } else {
    EXPECT_EQ(Kib(size), Kib(Narrow(slot.size).insert(slot.size.size() - 2, " "))) << size;
  }
  EXPECT_EQ(std::stoul(Field(device, "Array Handle"), nullptr, 16), slot.array_handle);
  EXPECT_EQ(Field(device, "Locator"), Narrow(slot.device_locator));
  EXPECT_EQ(Field(device, "Bank Locator"), Narrow(slot.bank_label));
  EXPECT_EQ(Field(device, "Manufacturer"), Narrow(slot.manufacturer));
  const std::string type = Field(device, "Type") == "Flash" ? "FLASH" : Field(device, "Type");
  if (slot.type != L"Unknown") {
    EXPECT_EQ(type, Narrow(slot.type));
  }
  EXPECT_EQ(Speed(device, "Speed"), Narrow(slot.speed));
  EXPECT_EQ(Speed(device, "Configured Memory Speed"), Narrow(slot.clock_speed));
}

/// Compares what both make of the memory in one file. dmidecode shows nothing of a device below the first published
/// length.
void ExpectSameMemory(const MemoryInfo& info, const PrintedTable& printed) {
  std::map<unsigned, const MemorySlot*> slots;
  for (const MemorySlot& slot : info.slots())
    slots[slot.handle] = &slot;
  for (const auto& [handle, device] : printed) {
    const std::string size = device.type == 17 ? Field(device, "Size") : "";
    if (size.empty() || size == "No Module Installed") continue;
    const auto array = printed.find(static_cast<unsigned>(std::stoul(Field(device, "Array Handle"), nullptr, 16)));
    if (array == printed.end() || array->second.type != 16) continue;
    ASSERT_TRUE(slots.contains(handle)) << "device " << std::hex << handle;
    ExpectSameSlot(*slots[handle], device);
    const std::string correction = Field(array->second, "Error Correction Type");
    EXPECT_EQ(correction == "<OUT OF SPEC>" ? "Unknown" : correction, Narrow(slots[handle]->error_correction));
    slots.erase(handle);
  }
  for (const auto& [handle, slot] : slots)
    ADD_FAILURE() << "dmidecode does not see device " << std::hex << handle;
}

/// Reads `dump` both ways. What both make of its memory is compared; the rest is for the test.
class Comparison {
 public:
  explicit Comparison(const Bytes& dump) : tool_(TVK::NormaliseSmbiosDump(dump).rsmb) {
    const TempFolder folder;
    const std::string file = (folder.path() / "table.bin").string();
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(dump.data()), static_cast<std::streamsize>(dump.size()));
    printed_ = RunDmidecode(file);
    readable_ = tool_.Initialize() == 0;
    if (!readable_) return;
    EXPECT_EQ(memory_.GetMemoryInfo(), 0);
    ExpectSameMemory(memory_, printed_);
    EXPECT_EQ(Narrow(tool_.GetVersion()), printed_.version);
  }
  bool readable() const { return readable_; }
  const PrintedTable& printed() const { return printed_; }
  const SMBiosTool& tool() const { return tool_; }
  const MemoryInfo& memory() const { return memory_; }

 private:
  SMBiosTool tool_;
  MemoryInfo memory_{tool_};
  PrintedTable printed_;
  bool readable_ = false;
};

TEST(DmidecodeComparison, AgreesOnSoundTables) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Random random(seed);
    const Comparison compared(RandomTable(random).Dump64());
    ASSERT_TRUE(compared.readable());
    const PrintedTable& printed = compared.printed();
    ASSERT_GE(printed.size(), 4u);
    EXPECT_EQ(compared.tool().Survey().structures, printed.size());

    std::uint64_t maximum = 0;
    for (const auto& [handle, structure] : printed) {
      if (structure.type == 16) maximum += Kib(Field(structure, "Maximum Capacity"));
    }
    EXPECT_EQ(maximum, compared.memory().maximum_physical_kb());

    const TVK::SmbiosIdentity identity = TVK::ReadSmbiosIdentity(compared.tool());
    EXPECT_EQ(Field(printed.at(0), "Version"), Narrow(identity.bios_version));
    EXPECT_EQ(Field(printed.at(0), "BIOS Revision"), Narrow(identity.bios_release));
    EXPECT_EQ(Field(printed.at(0), "Firmware Revision"), Narrow(identity.ec_release));
    EXPECT_EQ(Field(printed.at(1), "Product Name"), Narrow(identity.product_name));
    EXPECT_EQ(Field(printed.at(1), "SKU Number"), Narrow(identity.product_sku));
    EXPECT_EQ(Field(printed.at(1), "Family"), Narrow(identity.product_family));
  }
}

TEST(DmidecodeComparison, AgreesOnVersionLengthAndCountOfOldEntryPoints) {
  int compared = 0;
  for (unsigned seed = 200; seed < 240; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Random random(seed);
    const Table table = RandomTable(random);
    const std::uint32_t announced = 1 + Below(random, static_cast<std::uint32_t>(table.bytes().size()));
    const auto minor = OneOf<std::uint8_t>(random, {1, 3, 31, 33, 51, 8});
    const auto count = OneOf<std::uint16_t>(random, {0, 8, 12, 999});
    const Bytes entry = Table::EntryPoint32(static_cast<std::uint16_t>(announced), count, minor);
    compared += Comparison(table.Dump(entry)).readable();
  }
  EXPECT_GE(compared, 30);
}

TEST(DmidecodeComparison, AgreesOnTheSoundBeginOfDamagedTables) {
  constexpr std::size_t kTable = 0x20;
  int compared = 0;
  for (unsigned seed = 100; seed < 200; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Random random(seed);
    Bytes dump = RandomTable(random).Dump64();
    const auto table_size = static_cast<std::uint32_t>(dump.size() - kTable);
    dump[kTable + Below(random, table_size)] = static_cast<std::uint8_t>(Below(random, 256));
    if (seed % 2 == 0) dump.resize(kTable + table_size / 2 + Below(random, table_size / 2));
    compared += Comparison(dump).readable();
  }
  EXPECT_GE(compared, 80);
}

}  // namespace

// What this computer tells. Wine answers as a small Windows 10 machine without the newer processor counters.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "platform/drives.h"
#include "platform/event_log.h"
#include "platform/firmware.h"
#include "platform/local.h"
#include "platform/memory.h"
#include "platform/processors.h"
#include "platform/region.h"
#include "platform/system_facts.h"
#include "platform/volumes.h"
#include "platform/windows/processor_load.h"
#include "platform/windows/registry.h"

namespace platform::windows {
namespace {

class MachineWindowsTest : public testing::Test {
 protected:
  static bool OnWine() { return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

  std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  std::unique_ptr<Machine> machine_ = OpenLocalMachine({}, runtime_->clock());
};

TEST_F(MachineWindowsTest, ProcessorTimeIsRead) {
  const ProcessorLoadOpening opening = machine_->processors().OpenTime();
  ASSERT_TRUE(opening.reader) << opening.error;
  const auto load = opening.reader->Sample();
  ASSERT_TRUE(load);
  EXPECT_GE(*load, 0);
  EXPECT_LE(*load, 100);
}

TEST_F(MachineWindowsTest, DrivesAreListedByTheirNumbers) {
  std::vector<std::string> paths;
  for (const DriveListing& drive : machine_->drives().List()) {
    paths.push_back(drive.path);
    EXPECT_TRUE(std::regex_match(drive.path, std::regex(R"(\\\\\.\\PhysicalDrive\d+)"))) << drive.path;
  }
  EXPECT_EQ(std::set(paths.begin(), paths.end()).size(), paths.size());
}

TEST_F(MachineWindowsTest, TheSystemsVolumeIsListedOnceAndMeasured) {
  std::set<std::string> ids;
  int systems = 0;
  for (const Volume& volume : machine_->volumes().List()) {
    EXPECT_TRUE(std::regex_match(volume.id, std::regex(R"(\\\\\?\\Volume\{[0-9a-f-]{36}\}\\)"))) << volume.id;
    EXPECT_TRUE(ids.insert(volume.id).second);
    if (volume.role != VolumeRole::kSystem) continue;
    ++systems;
    EXPECT_FALSE(volume.file_system.empty());
    EXPECT_FALSE(volume.read_only);
    ASSERT_TRUE(volume.space);
    EXPECT_LT(volume.space->free_bytes, volume.space->bytes);
  }
  EXPECT_EQ(systems, 1);
}

TEST_F(MachineWindowsTest, ProcessorUtilityIsReadOrItsStatusTold) {
  const ProcessorLoadOpening opening = machine_->processors().OpenUtility();
  if (OnWine()) {
    EXPECT_FALSE(opening.reader);
    EXPECT_EQ(opening.error, 0xC0000BB9);
  } else {
    ASSERT_TRUE(opening.reader) << opening.error;
    EXPECT_TRUE(opening.reader->Sample());
  }
}

TEST_F(MachineWindowsTest, MalformedCounterPathFails) {
  const ProcessorLoadOpening opening = OpenProcessorLoad(L"no path");
  EXPECT_FALSE(opening.reader);
  EXPECT_NE(opening.error, 0);
}

TEST_F(MachineWindowsTest, TopologyAgreesWithTheSystem) {
  const TopologyReading reading = machine_->processors().ReadTopology();
  ASSERT_TRUE(reading.supported);
  ASSERT_EQ(reading.error, 0);
  EXPECT_GE(reading.returned_bytes, reading.entry_bytes);
  EXPECT_EQ(reading.topology.address_width, 64u);
  EXPECT_EQ(reading.topology.logical_processors, std::thread::hardware_concurrency());
  EXPECT_GE(reading.topology.cores, 1u);
  EXPECT_LE(reading.topology.cores, reading.topology.logical_processors);
  EXPECT_FALSE(reading.topology.name.empty());
}

TEST_F(MachineWindowsTest, MemoryAndBootTimeArePlausible) {
  const auto memory = machine_->memory().ReadStatus();
  ASSERT_TRUE(memory);
  EXPECT_LE(memory->load_percent, 100u);
  EXPECT_GT(memory->available_bytes, 0u);
  EXPECT_LT(memory->available_bytes, memory->total_bytes);
  const auto boot = machine_->system().ReadBootTime();
  ASSERT_TRUE(boot);
  EXPECT_LE(*boot, runtime_->clock().NowSeconds());
}

TEST_F(MachineWindowsTest, SmbiosTableHasTheLengthItStates) {
  const std::vector<std::uint8_t> table = machine_->firmware().ReadSmbios();
  ASSERT_GT(table.size(), 8u);
  const std::size_t stated = table[4] | table[5] << 8 | table[6] << 16 | static_cast<std::size_t>(table[7]) << 24;
  EXPECT_EQ(stated, table.size() - 8);
}

TEST_F(MachineWindowsTest, SystemAndRegionFactsAreTold) {
  const OperatingSystemFacts system = machine_->system().ReadOperatingSystem();
  EXPECT_TRUE(system.name.find("Windows") != std::string::npos) << system.name;
  EXPECT_TRUE(std::regex_match(system.version, std::regex("1[0-9]\\.\\d+\\.\\d{5}"))) << system.version;
  EXPECT_TRUE(std::regex_match(system.display_language, std::regex("[a-z]{2,3}(-.+)?"))) << system.display_language;
  EXPECT_TRUE(system.update_description.starts_with(system.name)) << system.update_description;
  EXPECT_FALSE(machine_->region().ReadFacts().locale_name.empty());
  EXPECT_FALSE(machine_->region().ReadFacts().time_zone.empty());
  EXPECT_TRUE(std::regex_match(machine_->system().ReadInstallationId(), std::regex("[0-9a-fA-F-]{36}")));
  EXPECT_TRUE(machine_->system().ReadLoggedInUserId().starts_with("S-1-5-"));
}

// The firmware facts come from a key that only the administrators can write; here it is filled and restored.
TEST_F(MachineWindowsTest, FirmwareFactsComeFromTheBiosKey) {
  constexpr wchar_t kKey[] = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
  const auto set = [&](const wchar_t* name, DWORD value) {
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, name, REG_DWORD, &value, sizeof value);
  };
  const auto before = RegistryNumber(HKEY_LOCAL_MACHINE, kKey, L"ECFirmwareMajorRelease");
  ASSERT_EQ(set(L"BiosMajorRelease", 1), ERROR_SUCCESS);
  ASSERT_EQ(set(L"BiosMinorRelease", 20), ERROR_SUCCESS);
  ASSERT_EQ(set(L"ECFirmwareMajorRelease", 255), ERROR_SUCCESS);
  ASSERT_EQ(set(L"ECFirmwareMinorRelease", 255), ERROR_SUCCESS);
  const FirmwareFacts facts = machine_->firmware().ReadFacts();
  EXPECT_EQ(facts.bios_release, "1.20");
  EXPECT_EQ(facts.ec_release, "") << "255.255 stands for a controller that does not tell";
  EXPECT_EQ(facts.manufacturer, RegistryText(HKEY_LOCAL_MACHINE, kKey, L"SystemManufacturer"));
  if (before) set(L"ECFirmwareMajorRelease", *before);
}

TEST_F(MachineWindowsTest, RegistryTextsOfAnyLengthAreReadAndOtherKindsAreNot) {
  constexpr wchar_t kKey[] = L"Software\\TvkRegistryTest";
  const std::wstring text(1000, L'\u00e4');
  ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"Text", REG_SZ, text.data(),
                            static_cast<DWORD>(text.size() * sizeof(wchar_t))),
            ERROR_SUCCESS);
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, kKey, L"Text").size(), 2 * text.size());
  EXPECT_FALSE(RegistryNumber(HKEY_CURRENT_USER, kKey, L"Text"));
  EXPECT_EQ(RegistryText(HKEY_CURRENT_USER, kKey, L"Absent"), "");
  RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
}

TEST_F(MachineWindowsTest, CountriesComeFromTheSystemsTable) {
  EXPECT_EQ(machine_->region().CountryOfNation("94"), "DE");
  EXPECT_EQ(machine_->region().CountryOfNation("244"), "US");
  for (const char* none : {"", "x", "94x", " 94", "-94", "99999", "99999999999999999999"})
    EXPECT_EQ(machine_->region().CountryOfNation(none), "") << none;
}

TEST_F(MachineWindowsTest, EventLogIsReadOrItsFailureTold) {
  const EventLogReading reading = machine_->event_log().Query(
      {.channel = "System", .xpath = "*", .value_paths = {"Event/System/Channel"}, .limit = 2});
  if (OnWine()) {
    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.failure, EventLogFailure::kNotSupported) << reading.error;
  } else {
    ASSERT_EQ(reading.failure, EventLogFailure::kNone) << reading.error;
    ASSERT_FALSE(reading.records.empty());
    EXPECT_EQ(reading.records[0].values, std::vector<EventLogValue>{"System"});
    EXPECT_TRUE(reading.records[0].xml.starts_with("<Event "));
  }
}

TEST_F(MachineWindowsTest, RecordedMachineIsRefused) {
  EXPECT_THROW(OpenLocalMachine({.sysroot = "C:\\tree"}, runtime_->clock()), std::invalid_argument);
}

}  // namespace
}  // namespace platform::windows

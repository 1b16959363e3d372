#include "apps/tvkctl/inspect_smart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "platform/local.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_machine.h"
#include "testing/drive_sectors.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

using namespace testing_support;
using platform::DriveBus;
using platform::DrivePage;

Sector Values() {
  return AtaValues({{.id = 5, .normalized = 36, .worst = 30, .raw = 281474976710655},
                    {.id = 210, .normalized = 1},
                    {.id = 211, .normalized = 2}});
}

Sector Thresholds() {
  return AtaThresholds({{211, 2}, {210, 3}, {5, 36}});
}

constexpr char kGenericAnswer[] =
    R"("failing":["ReallocatedSectorCount","VibrationDuringWrite"],)"
    R"("itemData":{"ReallocatedSectorCount":"{ \"raw\": \"281474976710655\",\"normalized\": \"36\",)"
    R"(\"threshold\": \"36\",\"worst\": \"30\"}","VibrationDuringWrite":"{ \"raw\": \"0\",)"
    R"(\"normalized\": \"2\",\"threshold\": \"2\",\"worst\": \"100\"}"})";

class InspectSmartTest : public testing::Test {
 protected:
  std::filesystem::path Write(const char* name, const Sector& bytes) {
    const auto file = folder_.path() / name;
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return file;
  }
  int Run(const SmartOptions& options) {
    Clear();
    return RunInspectSmartFiles(options, out_, errors_);
  }
  int RunDrives(bool json) {
    Clear();
    return RunInspectSmartDrives({.json = json, .machine_name = "this machine"}, machine_, *runtime_, out_, errors_);
  }
  void Clear() {
    out_.str("");
    errors_.str("");
  }

  TempFolder folder_;
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  platform::SimulatedMachine machine_;
  std::ostringstream out_;
  std::ostringstream errors_;
};

TEST_F(InspectSmartTest, ShowsTheRecordsOfFiles) {
  const auto values = Write("values", Values());
  const auto thresholds = Write("thresholds", Thresholds());
  EXPECT_EQ(Run({.ata_values = values, .ata_thresholds = thresholds, .json = true}), 0);
  EXPECT_EQ(out_.str(), std::string("{") + kGenericAnswer + R"(,"table":"generic"})" + "\n");
  EXPECT_EQ(Run({.ata_values = values}), 0);
  EXPECT_EQ(out_.str().find("failing  none\n"), out_.str().find("failing")) << out_.str();

  const auto ssd = Write("ssd", AtaIdentify());
  for (const auto& [identify, table, told] :
       {std::tuple(ssd, std::optional<SmartTable>(), "sata"),
        {ssd, SmartTable::kGeneric, "generic"},
        {Write("disk", AtaIdentify({.rotation_rate = 7200})), std::nullopt, "generic"},
        {std::filesystem::path(), SmartTable::kSata, "sata"}}) {
    EXPECT_EQ(Run({.ata_values = values, .ata_identify = identify, .table = table, .json = true}), 0);
    EXPECT_NE(out_.str().find(std::string(R"("table":")") + told), std::string::npos) << out_.str();
    EXPECT_EQ(out_.str().find("VibrationDuringWrite") == std::string::npos, std::string(told) == "sata");
  }
  EXPECT_EQ(Run({.ata_identify = ssd, .json = true}), 0);
  EXPECT_EQ(out_.str(),
            R"({"firmware":"FW1.20","model":"Contoso SSD 256GB","rotating":false,"selfTestSupported":true,)"
            R"("serialHash":"993654CE8539835F595E9241254416D78805602DD4A4372C5610D0ADEE0A52A2","smartEnabled":true,)"
            R"("smartSupported":true})"
            "\n");
  EXPECT_EQ(Run({.nvme_health = Write("nvme", NvmeHealthPage())}), 0);
  EXPECT_NE(out_.str().find("DataUnitsRead                     1001\n"), std::string::npos) << out_.str();
}

TEST_F(InspectSmartTest, SaysWhatIsWrongWithAFile) {
  Sector broken = Values();
  broken[7] ^= 1;
  Sector cut = Values();
  cut.resize(511);
  const auto values = Write("values", Values());
  const auto damaged = Write("broken", broken);
  Sector no_drive = AtaIdentify();
  no_drive[300] ^= 1;
  for (const auto& [options, said] : {
           std::pair(SmartOptions{.ata_values = folder_.path() / "absent"}, "absent"),
           {SmartOptions{.ata_values = Write("cut", cut)}, "has 511 bytes instead of 512"},
           {SmartOptions{.ata_values = Write("empty", {})}, "has 0 bytes instead of 512"},
           {SmartOptions{.nvme_health = Write("long", Sector(513))}, "has 513 bytes instead of 512"},
           {SmartOptions{.ata_values = damaged}, "broken: the checksum is wrong"},
           {SmartOptions{.ata_values = values, .ata_thresholds = damaged}, "broken: the checksum is wrong"},
           {SmartOptions{.ata_identify = Write("no", no_drive)}, "no: the checksum is wrong"},
           {SmartOptions{.ata_identify = Write("cd", AtaIdentify({.configuration = 0x85C0}))},
            "cd: is no identification of an ATA drive"},
       }) {
    EXPECT_EQ(Run(options), 2);
    EXPECT_NE(errors_.str().find(said), std::string::npos) << errors_.str();
    EXPECT_EQ(std::ranges::count(errors_.str(), '\n'), 1);
    EXPECT_EQ(out_.str(), "");
  }
  EXPECT_EQ(Run({.ata_values = Write("none", AtaValues({})), .json = true}), 0);
  EXPECT_NE(errors_.str().find("warning: "), std::string::npos);
}

TEST_F(InspectSmartTest, AsksTheDrivesOfTheMachine) {
  machine_.drives().Set(
      {{.listing = {.path = "/dev/sda", .bus = DriveBus::kAta, .model = "Disk\x1b[2J"},
        .pages = {{DrivePage::kAtaSmartValues, Values()}, {DrivePage::kAtaSmartThresholds, Thresholds()}}},
       {.listing = {.path = "/dev/sdb", .bus = DriveBus::kAta},
        .pages = {{DrivePage::kAtaIdentify, AtaIdentify()}, {DrivePage::kAtaSmartValues, Values()}}},
       {.listing = {.path = "/dev/sdc", .bus = DriveBus::kAta}, .power = platform::DrivePower::kAsleep},
       {.listing = {.path = "/dev/nvme0n1", .bus = DriveBus::kNvme, .model = "N"},
        .pages = {{DrivePage::kNvmeHealth, NvmeHealthPage()}}}});
  EXPECT_EQ(RunDrives(true), 0) << errors_.str();
  for (
      const std::string& said :
      {std::string(R"({"drives":[{)") + kGenericAnswer +
           R"(,"model":"Disk?[2J","path":"/dev/sda","serialHash":"","table":"generic"},)",
       std::string(R"("path":"/dev/sdb","serialHash":"9936)"),
       std::string(R"("table":"sata"},{"model":"","path":"/dev/sdc",)"
                   R"("problem":"it is asleep, and is not woken","serialHash":""},{"itemData":)"),
       std::string(
           R"("WarningCompositeTemperatureTime":"5"},"model":"N","path":"/dev/nvme0n1","serialHash":"","table":"nvme"}]})")})
    EXPECT_NE(out_.str().find(said), std::string::npos) << said << '\n' << out_.str();
  EXPECT_EQ(out_.str().find("S3CRET"), std::string::npos);
  EXPECT_EQ(RunDrives(false), 0);
  EXPECT_NE(out_.str().find("failing     ReallocatedSectorCount, VibrationDuringWrite\n\n"), std::string::npos)
      << out_.str();

  machine_.drives().Change([](auto& drives) {
    for (auto& drive : drives)
      drive.opening = platform::DriveResult::kNoRight;
  });
  EXPECT_EQ(RunDrives(true), 3);
  EXPECT_EQ(out_.str(), "");
  EXPECT_NE(errors_.str().find("tvkctl: /dev/nvme0n1: this process has no right to ask it\n"), std::string::npos)
      << errors_.str();
  machine_.drives().Set({});
  EXPECT_EQ(RunDrives(false), 3);
  EXPECT_EQ(errors_.str(), "tvkctl: this machine: nothing tells of its drives\n");
}

}  // namespace
}  // namespace tvkctl

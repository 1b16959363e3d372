#include "apps/tvkctl/command_line.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "apps/tvkctl/inspect_commands.h"
#include "platform/simulated/simulated_machine.h"
#include "testing/smbios_builder.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

using testing_support::Bytes;
using testing_support::Structure;
using testing_support::Table;

Table SoundTable() {
  Table table;
  table.Add(Structure(0, 0x18, 0)
                .Text(4, "Fabrikam")
                .Text(5, "C1ET42W")
                .Text(8, "03/31/2024")
                .Put(0x14, 0x0201, 2)
                .Put(0x16, 0x0403, 2));
  table.Add(Structure(1, 0x1B, 1).Text(4, "Contoso").Text(5, "Book\x1b[2J").Text(6, "X1").Text(7, "PF-SECRET"));
  table.Add(Structure(2, 0x0F, 2).Text(4, "Litware").Text(5, "Board").Text(6, "B2").Text(7, "L1-SECRET"));
  table.Add(testing_support::MemoryArray());
  table.Add(testing_support::MemoryDevice());
  table.Add(testing_support::MemoryDevice({.handle = 0x1101, .size = 0, .locator = "empty slot"}));
  table.Add(testing_support::MemoryDevice({.handle = 0x1102, .size = 0x7FFF, .extended_size = 65536}));
  return table.End();
}

class CommandLineTest : public testing::Test {
 protected:
  int Run(std::vector<std::string> arguments) {
    out_.str("");
    errors_.str("");
    return RunTvkctl(std::move(arguments), out_, errors_);
  }
  Json::Value RunJson(std::vector<std::string> arguments) {
    EXPECT_EQ(Run(std::move(arguments)), 0) << errors_.str();
    Json::Value value;
    std::istringstream(out_.str()) >> value;
    return value;
  }
  std::string Write(const std::string& name, const Bytes& bytes) {
    std::ofstream(folder_.path() / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return (folder_.path() / name).string();
  }
  std::string Write(const std::string& name, const std::string& text) {
    return Write(name, Bytes(text.begin(), text.end()));
  }

  TempFolder folder_;
  std::ostringstream out_;
  std::ostringstream errors_;
};

TEST_F(CommandLineTest, GivesTheExitCodesThatHelpLists) {
  const std::string folder = folder_.path().string();
  const std::string good = Write("good.json", R"({"telemetryScope":"full","datasets":[]})");
  const std::string bad = Write("bad.json", R"({"telemetryScope":"loud","datasets":[]})");
  struct Row {
    std::vector<std::string> arguments;
    int exit_code;
    std::string said;  // On either stream.
  };
  for (const Row& row : std::vector<Row>{
           {{"--help"}, 0, "Exit codes: 0 done, 1 wrong command line"},
           {{"inspect", "memory", "--help"}, 0, "--smbios FILE"},
           {{"--version"}, 0, "tvkctl "},
           {{}, 1, "a command is missing"},
           {{"policy"}, 1, "a command is missing"},
           {{"policy", "bogus"}, 1, "bogus"},
           {{"records", "policy", "schema"}, 1, "policy"},
           {{"records", "--kind", "all"}, 1, "--kind"},
           {{"records", "--format", "xml"}, 1, "--format"},
           {{"records", "--limit", "-1"}, 1, "--limit: \"-1\" is no count"},
           {{"records", "--limit", "99999999999999999999"}, 1, "is no count"},
           {{"records", "--data-dir", ""}, 1, "--data-dir: the value is empty"},
           {{"records", "--dataset", ""}, 1, "--dataset: the value is empty"},
           {{"records", "--since="}, 1, "--since"},
           {{"policy", "apply", good, "--policy", ""}, 1, "--policy: the value is empty"},
           {{"policy", "check", ""}, 1, "FILE: the value is empty"},
           {{"inspect", "memory", "--smbios", good, "--sysroot", folder}, 1, "--sysroot"},
           {{"inspect", "memory", "--smbios", ""}, 1, "--smbios: the value is empty"},
           {{"inspect", "cpu", "--sysroot", ""}, 1, "--sysroot: the value is empty"},
           {{"records", "--data-dir", folder}, 2, "no store at"},
           {{"--data-dir", folder, "records"}, 2, "no store at"},
           {{"policy", "schema"}, 0, "telemetryScope"},
           {{"policy", "check", good}, 0, "no problems"},
           {{"policy", "check", good, "--scope", "loud"}, 1, "is no scope"},
           {{"policy", "check", bad}, 2, "telemetryScope"},
           {{"policy", "apply", bad, "--policy", folder + "/policy.json"}, 2, "telemetryScope"},
           {{"policy", "apply", good, "--policy", folder + "/policy.json"}, 0, "holds the policy now"},
           {{"inspect", "cpu", "--sysroot", folder + "/absent"}, 2, "no such folder"},
           {{"inspect", "memory", "--smbios", folder + "/absent"}, 2, "absent"},
           {{"inspect", "firmware", "--smbios", good}, 2, "neither an SMBIOS dump nor an RSMB table"},
       }) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    EXPECT_EQ(Run(row.arguments), row.exit_code);
    EXPECT_NE((out_.str() + errors_.str()).find(row.said), std::string::npos) << out_.str() << errors_.str();
  }
}

TEST_F(CommandLineTest, PolicyCheckKnowsTheDatasetsOfTheComponent) {
  const std::string file = Write("p.json", R"({"telemetryScope":"basic","datasets":[
      {"id":"9492447A-FCAC-428E-B7A8-7F7918199480","name":"CPUEvent","settings":{"ReadUsageInterval":"5m"}},
      {"id":"4B433ADC-BD40-43E7-85BF-014C8C8128D3","name":"BatteryEvent"},
      {"id":"71CA0A00-237A-4ACD-B196-7182B2A86B72","name":"VitalSignsEvent"}]})");
  const Json::Value report = RunJson({"policy", "check", file, "--json"});
  std::map<std::string, std::string> states;
  for (const Json::Value& dataset : report["datasets"])
    states[dataset["name"].asString()] = dataset["why"].asString();
  // Those that the policy lists, and the three that run whatever it says.
  EXPECT_EQ(states, (std::map<std::string, std::string>{{"CPUEvent", "runs"},
                                                        {"BatteryEvent", "scope"},
                                                        {"VitalSignsEvent", "runs"},
                                                        {"SystemPowerEvent", "runs"},
                                                        {"NetworkEvent", "runs"},
                                                        {"DeviceStatus", "runs"}}));
  EXPECT_TRUE(report["datasets"][0]["collects"].asBool());
  EXPECT_EQ(report["datasets"][0]["settings"][0]["value"].asString(), "5m");
  EXPECT_FALSE(report["datasets"][2]["collects"].asBool());
}

TEST_F(CommandLineTest, InspectMemoryDecodesBothFormsOfAFile) {
  for (const std::string& file : {Write("dump", SoundTable().Dump64()), Write("rsmb", SoundTable().Rsmb())}) {
    SCOPED_TRACE(file);
    const Json::Value memory = RunJson({"inspect", "memory", "--smbios", file, "--json"});
    EXPECT_EQ(memory["slots"].size(), 2u);
    const Json::Value& slot = memory["slots"][0];
    EXPECT_EQ(slot["handle"].asInt(), 0x1100);
    EXPECT_EQ(slot["array_handle"].asInt(), 0x1000);
    EXPECT_EQ(slot["MemorySlotSize"].asString(), "16384MB");
    EXPECT_EQ(slot["MemorySlotManufacturer"].asString(), "Contoso");
    EXPECT_EQ(memory["slots"][1]["MemorySlotSize"].asString(), "65536MB");
    EXPECT_EQ(memory["errorCorrection"].asString(), "None");
    EXPECT_EQ(memory["TotalPhysicalMemory"].asString(), "81920MB");
    EXPECT_EQ(memory["MaximumPhysicalMemory"].asString(), "32768MB");
    EXPECT_EQ(errors_.str(), "");
  }
}

TEST_F(CommandLineTest, InspectFirmwareShowsNoSerialNumberAndNoControlCharacter) {
  const std::string file = Write("dump", SoundTable().Dump64());
  const Json::Value firmware = RunJson({"inspect", "firmware", "--smbios", file, "--json"});
  EXPECT_EQ(firmware["BIOSManufacturer"].asString(), "Contoso");
  EXPECT_EQ(firmware["BIOSName"].asString(), "C1ET42W");
  EXPECT_EQ(firmware["BIOSReleaseDate"].asString(), "2024-03-31");
  EXPECT_EQ(firmware["SystemBIOSVersion"].asString(), "1.2");
  EXPECT_EQ(firmware["EmbeddedControllerVersion"].asString(), "3.4");
  EXPECT_EQ(firmware["SMBIOSVersion"].asString(), "3.2");
  EXPECT_TRUE(firmware.isMember("ECReleaseDate"));
  EXPECT_EQ(firmware["baseboard"]["manufacturer"].asString(), "Litware");
  EXPECT_FALSE(firmware["system"]["serialHash"].asString().empty());
  EXPECT_EQ(out_.str().find("SECRET"), std::string::npos);

  EXPECT_EQ(Run({"inspect", "firmware", "--smbios", file}), 0);
  EXPECT_EQ(out_.str().find("SECRET"), std::string::npos);
  EXPECT_NE(out_.str().find("Book.[2J"), std::string::npos);
}

TEST_F(CommandLineTest, InspectTellsADamagedTableFromNone) {
  const Bytes whole = SoundTable().Dump64();
  const auto first = [&](std::size_t size) { return Bytes(whole.begin(), whole.begin() + static_cast<long>(size)); };
  Bytes damaged = SoundTable().Rsmb();
  damaged[8 + 1] = 3;  // The first structure's length.
  struct Row {
    const char* name;
    Bytes bytes;
    int exit_code;
    const char* said;
  };
  for (const Row& row :
       {Row{"half", first(whole.size() / 2), 0, "warning: "}, Row{"header", first(0x20), 2, "tvkctl: "},
        Row{"cut", first(0x10), 2, "tvkctl: "}, Row{"empty", {}, 2, "the file is empty"},
        Row{"damaged", damaged, 2, "holds no whole structure"}}) {
    SCOPED_TRACE(row.name);
    const std::string file = Write(row.name, row.bytes);
    for (const char* const what : {"memory", "firmware"}) {
      EXPECT_EQ(Run({"inspect", what, "--smbios", file}), row.exit_code);
      EXPECT_NE(errors_.str().find(row.said), std::string::npos) << errors_.str();
      const std::string complaint = errors_.str();
      EXPECT_EQ(std::ranges::count(complaint, '\n'), 1) << complaint;
      EXPECT_EQ(out_.str().empty(), row.exit_code != 0);
    }
  }
}

TEST_F(CommandLineTest, InspectPadsNoRowToALongCell) {
  Table table;
  table.Add(testing_support::MemoryArray());
  table.Add(testing_support::MemoryDevice({.locator = std::string(5000, 'L')}));
  for (std::uint16_t handle = 0; handle < 50; ++handle)
    table.Add(testing_support::MemoryDevice({.handle = handle}));
  EXPECT_EQ(Run({"inspect", "memory", "--smbios", Write("long", table.End().Rsmb())}), 0);
  EXPECT_LT(out_.str().size(), 5000u + 52 * 250);
  EXPECT_NE(out_.str().find("L  BANK 0  Contoso\n"), std::string::npos) << "behind the long cell";
}

TEST(InspectCommandsTest, SaysWhatIsWrongWithTheMachinesOwnTable) {
  struct Row {
    const char* what;
    Bytes smbios;
    bool system_knows;  // Whether the system keeps facts of the firmware.
    int memory, firmware;
    const char* said;
  };
  Bytes cut = SoundTable().Rsmb();
  cut.resize(cut.size() - 20);
  const Table endless = Table().Add(testing_support::MemoryArray()).Add(testing_support::MemoryDevice());
  const Bytes header_alone = Table().Rsmb();
  const Bytes rubbish = Table().AddBytes(Bytes(100, 0xFF)).Rsmb();
  for (const Row& row : {Row{"sound", SoundTable().Rsmb(), false, 0, 0, ""},
                         Row{"cut", cut, false, 0, 0, "tvkctl: warning: this machine: the SMBIOS table is cut short: "},
                         Row{"cut between structures", endless.Rsmb(), false, 0, 0, "the SMBIOS table has no end"},
                         Row{"none", {}, false, 3, 3, "tvkctl: this machine: the SMBIOS table cannot be read: "},
                         Row{"none, facts", {}, true, 3, 0, "this machine: the SMBIOS table cannot be read: "},
                         Row{"empty", header_alone, false, 3, 3, "tvkctl: this machine: the SMBIOS table holds no"},
                         Row{"rubbish", rubbish, false, 3, 3, "tvkctl: this machine: the SMBIOS table holds no"},
                         Row{"rubbish, facts", rubbish, true, 3, 0, "the SMBIOS table holds no whole structure"}}) {
    platform::SimulatedMachineState state;
    state.smbios = row.smbios;
    if (!row.system_knows) state.firmware = {};
    platform::SimulatedMachine machine(state);
    for (const auto& [inspect, exit_code] :
         {std::pair(&RunInspectMemory, row.memory), {&RunInspectFirmware, row.firmware}}) {
      SCOPED_TRACE(testing::Message() << row.what << (inspect == RunInspectMemory ? ", memory" : ", firmware"));
      std::ostringstream out;
      std::ostringstream errors;
      EXPECT_EQ(inspect({}, machine, out, errors), exit_code);
      EXPECT_EQ(out.str().empty(), exit_code != 0);
      const std::string complaint = errors.str();
      EXPECT_NE(complaint.find(row.said), std::string::npos) << complaint;
      EXPECT_EQ(std::ranges::count(complaint, '\n'), row.said[0] == '\0' ? 0 : 1) << complaint;
      EXPECT_EQ(complaint.find("shown is what the system keeps") != std::string::npos,
                exit_code == 0 && row.memory != 0);
    }
  }
}

TEST(InspectCommandsTest, AMachineWithoutProcessorFactsIsAFailure) {
  platform::SimulatedMachineState state;
  state.topology = {};
  platform::SimulatedMachine machine(state);
  std::ostringstream out;
  std::ostringstream errors;
  EXPECT_EQ(RunInspectCpu({}, machine, out, errors), 3);
  EXPECT_EQ(out.str(), "");
  EXPECT_NE(errors.str().find("this machine"), std::string::npos);
}

}  // namespace
}  // namespace tvkctl

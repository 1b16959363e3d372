#include "apps/tvkctl/command_line.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <tuple>

#include "apps/tvkctl/inspect_commands.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_machine.h"
#include "platform/simulated/simulated_processors.h"
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
  const std::string facts = Write("facts.json", R"({"model":"M"})");
  const std::string bad = Write("bad.json", R"({"telemetryScope":"loud","datasets":[]})");
  const std::string odd = Write("odd.json", R"({"telemetryScope":"full","datasets":[{"id":"X","name":"Y"}]})");
  Bytes bytes = SoundTable().Rsmb();
  bytes[8 + 1] = 3;  // The first structure's length.
  const std::string damaged = Write("damaged", bytes);
  bytes = SoundTable().Dump64();
  bytes.resize(bytes.size() / 2);
  const std::string half = Write("half", bytes);
  struct Row {
    std::vector<std::string> arguments;
    int exit_code;
    std::string said;  // On either stream.
  };
  for (const Row& row : std::vector<Row>{
           {{"--help"}, 0, "Exit codes: 0 done, 1 wrong command line"},
           {{"--version"}, 0, "tvkctl "},
           {{}, 1, "a command is missing"},
           {{"policy"}, 1, "a command is missing behind \"tvkctl policy\": check, schema, apply; "},
           {{"policy", "chekc"}, 1, "\"chekc\" is no command of \"tvkctl policy\"; did you mean \"check\"?; "},
           {{"recrods"}, 1, "did you mean \"records\"?"},
           {{"records", "--datset=CPU"},
            1,
            "\"--datset\" is no option of \"tvkctl records\"; did you mean \"--dataset\"?"},
           {{"status", "--data-dri", "x"}, 1, "did you mean \"--data-dir\"?"},
           {{"status", "now"}, 1, "tvkctl: \"now\" is not expected by \"tvkctl status\"; "},
           {{"records", "--kind", "all"}, 1, "--kind"},
           {{"records", "--format", "xml"}, 1, "--format"},
           {{"records", "--limit", "-1"}, 1, "--limit: \"-1\" is no count"},
           {{"records", "--limit", "99999999999999999999"}, 1, "is no count"},
           {{"erase", "--data-dir", folder}, 1, "erase takes --all"},
           {{"erase", "--all", "--before", "1d", "--data-dir", folder}, 1, "erase takes --all"},
           {{"erase", "--dataset", "cpu", "--data-dir", folder}, 1, "no dataset cpu; names: TVKEvent"},
           {{"erase", "--all", "--yes", "--data-dir", folder + "/none"}, 2, "no folder"},
           {{"records", "--data-dir", ""}, 1, "--data-dir: the value is empty"},
           {{"records", "--data-dir", folder, "--since", "elevenses"}, 1, "elevenses"},
           {{"records", "--follow", "--reverse"}, 1, "--reverse"},
           {{"records", "--follow", "--until", "now"}, 1, "--until"},
           {{"policy", "check", ""}, 1, "FILE: the value is empty"},
           {{"inspect", "memory", "--smbios", good, "--sysroot", folder}, 1, "--sysroot"},
           {{"records", "--data-dir", folder}, 2, "no store at"},
           {{"--data-dir", folder, "records"}, 2, "no store at"},
           {{"report", "--html", ""}, 1, "--html: the value is empty"},
           {{"report", "--data-dir", folder, "--html", folder + "/report.html"}, 2, "no store at"},
           {{"status", "--data-dir", folder}, 3, "the service is not there"},
           {{"status", "--data-dir", folder, "--policy", odd}, 3, "full"},
           {{"doctor", "--data-dir", folder}, 3, "mend it: as root or an administrator: "},
           {{"doctor", "--dataset", "CPU"}, 1, "no dataset is named \"CPU\"; names: TVKEvent, "},
           {{"event", "--item", "X"}, 1, "--dataset"},
           {{"event", "--dataset", "CPUEvent", "--item", "X"}, 1, "the dataset TVKEvent alone takes events"},
           {{"event", "--dataset", "TVKEvent", "--item", "X", "a=1", "a=2"}, 1, "the key \"a\" stands twice"},
           {{"event", "--dataset", "TVKEvent", "--item", "X", "=1"}, 1, "is not of the form KEY=VALUE"},
           {{"event", "--dataset", "TVKEvent", "--item", "X", "a=" + std::string(257, 'x')}, 1, "data: too many"},
           {{"event", "--data-dir", folder, "--dataset", "TVKEvent", "--item", "X"}, 3, "the service is not there"},
           {{"completion", "bash"},
            0,
            "\" policy check\") [[ $word == -* ]] || return; words=\"--help --facts --sysroot --against --scope --json "
            "--data-dir\""},
           {{"completion", "bash"}, 0, "\" records --kind\") words=\"item dataset device\" ;;"},
           {{"completion", "zsh"}, 0, "\" report --data-dir\") return ;;"},
           {{"completion", "powershell"}, 0, "' inspect smart --table' = 'sata generic'"},
           {{"completion", "powershell"}, 0, "$files = @(' policy apply', ' policy check')"},
           {{"completion", "powershell"}, 0, "' policy' = 'check schema apply --help --data-dir'"},
           {{"completion", "fish"}, 1, "tvkctl: SHELL"},
           {{"policy", "schema"}, 0, "telemetryScope"},
           {{"policy", "check", good}, 0, "no problems"},
           {{"policy", "check", good, "--scope", "loud"}, 1, "is no scope"},
           {{"policy", "check", bad}, 2, "telemetryScope"},
           {{"policy", "check", "--facts", facts, bad}, 2, "telemetryScope"},
           {{"policy", "check", "--facts", facts, "--facts", facts, good}, 0, "no problems"},
           {{"policy", "apply", bad, "--policy", folder + "/policy.json"}, 2, "telemetryScope"},
           {{"policy", "apply", good, "--policy", folder + "/policy.json"}, 0, "holds the policy now"},
           {{"policy", "apply", good, "--policy", good + "/policy.json"}, 3, "good.json"},
           {{"policy", "apply", odd, "--policy", folder + "/policy.json"}, 0, "no dataset has the id"},
           {{"inspect", "cpu", "--sysroot", folder + "/absent"}, 2, "no such folder"},
           {{"inspect", "memory", "--smbios", folder + "/absent"}, 2, "absent"},
           {{"inspect", "drives", "--smbios", good}, 1, "--smbios"},
           {{"inspect", "drives", "--record", ""}, 1, "--record: the value is empty"},
           {{"inspect", "drives", "--sysroot", folder, "--record", folder}, 3, "nothing tells of its drives"},
           {{"inspect", "firmware", "--smbios", good}, 2, "neither an SMBIOS dump nor an RSMB table"},
           {{"inspect", "memory", "--smbios", damaged}, 2, "holds no whole structure"},
           {{"inspect", "firmware", "--smbios", damaged}, 2, "holds no whole structure"},
           {{"inspect", "smart", "--ata-thresholds", half}, 1, "--ata-values"},
           {{"inspect", "smart", "--nvme-health", half, "--ata-identify", half}, 1, "--nvme-health"},
           {{"inspect", "smart", "--nvme-health", half, "--table", "sata"}, 1, "--table"},
           {{"inspect", "smart", "--ata-values", half, "--table", "other"}, 1, "--table"},
           {{"inspect", "smart", "--ata-values", half, "--sysroot", folder}, 1, "--sysroot"},
           {{"inspect", "smart", "--sysroot", folder}, 3, "nothing tells of its drives"},
           {{"inspect", "battery", "--sysroot", folder}, 0, "no battery"},
           {{"inspect", "power", "--sysroot", folder, "--json"}, 0, R"("source":null)"},
           {{"inspect", "battery", "--smbios", half}, 1, "--smbios"},
           {{"inspect", "smart", "--ata-values", half}, 2, "bytes instead of 512"},
           {{"inspect", "memory", "--smbios", half}, 0, "tvkctl: warning: "},
           {{"inspect", "firmware", "--smbios", half}, 0, "tvkctl: warning: "},
       }) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const int exit_code = Run(row.arguments);
    // What the other rows of recorded machines say comes after that.
    const bool elsewhere = errors_.str().find("a recorded machine can be opened on Linux only") != std::string::npos;
    EXPECT_EQ(exit_code, elsewhere ? 2 : row.exit_code);
    if (elsewhere) continue;
    EXPECT_NE((out_.str() + errors_.str()).find(row.said), std::string::npos) << out_.str() << errors_.str();
  }
}

TEST_F(CommandLineTest, PolicyCheckKnowsTheDatasetsOfTheComponent) {
  const std::string file = Write("p.json", R"({"telemetryScope":"basic","datasets":[
      {"id":"9492447A-FCAC-428E-B7A8-7F7918199480","name":"CPUEvent","settings":{"ReadUsageInterval":"5m"}},
      {"id":"4B433ADC-BD40-43E7-85BF-014C8C8128D3","name":"BatteryEvent"},
      {"id":"71CA0A00-237A-4ACD-B196-7182B2A86B72","name":"VitalSignsEvent"}]})");
  const Json::Value report = RunJson({"policy", "check", file, "--json"});
  EXPECT_TRUE(report["valid"].asBool());
  EXPECT_EQ(report["scope"].asString(), "basic");
  std::string states;
  for (const Json::Value& dataset : report["datasets"])
    states += dataset["name"].asString() + ' ' + dataset["why"].asString() + ';';
  // Those that the policy lists, and the three that run whatever it says.
  EXPECT_EQ(states,
            "CPUEvent runs;BatteryEvent scope;VitalSignsEvent runs;"
            "SystemPowerEvent runs;NetworkEvent runs;DeviceStatus runs;");
  const Json::Value& cpu = report["datasets"][0];
  EXPECT_TRUE(cpu["collects"].asBool());
  EXPECT_EQ(cpu["settings"][0]["value"].asString(), "5m");
  EXPECT_EQ(cpu["settings"][0]["source"].asString(), "policy");
  EXPECT_EQ(cpu["settings"][1]["source"].asString(), "default");
  EXPECT_EQ(cpu["settings"][1]["reason"].asString(), "missing");
  EXPECT_FALSE(report["datasets"][2]["collects"].asBool());
}

TEST_F(CommandLineTest, InspectFirmwareShowsNoSerialNumberAndNoControlCharacter) {
  const std::string file = Write("dump", SoundTable().Dump64());
  const Json::Value firmware = RunJson({"inspect", "firmware", "--smbios", file, "--json"});
  EXPECT_EQ(firmware["BIOSManufacturer"].asString(), "Contoso");
  EXPECT_EQ(firmware["BIOSReleaseDate"].asString(), "2024-03-31");
  EXPECT_EQ(firmware["SystemBIOSVersion"].asString(), "1.2");
  EXPECT_EQ(firmware["EmbeddedControllerVersion"].asString(), "3.4");
  EXPECT_TRUE(firmware.isMember("ECReleaseDate"));
  EXPECT_EQ(firmware["baseboard"]["manufacturer"].asString(), "Litware");
  EXPECT_FALSE(firmware["system"]["serialHash"].asString().empty());
  EXPECT_EQ(out_.str().find("SECRET"), std::string::npos);

  EXPECT_EQ(Run({"inspect", "firmware", "--smbios", file}), 0);
  EXPECT_EQ(out_.str().find("SECRET"), std::string::npos);
  EXPECT_NE(out_.str().find("Book.[2J"), std::string::npos);
}

TEST(InspectCommandsTest, SaysWhatIsWrongWithTheMachine) {
  struct Row {
    const char* what;
    Bytes smbios;
    bool system_knows;  // Whether the system keeps facts of the firmware.
    int memory, firmware;
    const char* said;
  };
  Bytes cut = SoundTable().Rsmb();
  cut.resize(cut.size() - 20);
  const Bytes rubbish = Table().AddBytes(Bytes(100, 0xFF)).Rsmb();
  for (const Row& row : {Row{"sound", SoundTable().Rsmb(), false, 0, 0, ""},
                         Row{"cut", cut, false, 0, 0, "tvkctl: warning: this machine: the SMBIOS table is cut short: "},
                         Row{"none", {}, false, 3, 3, "tvkctl: this machine: the SMBIOS table cannot be read: "},
                         Row{"none, facts", {}, true, 3, 0, "this machine: the SMBIOS table cannot be read: "},
                         Row{"rubbish", rubbish, false, 3, 3, "tvkctl: this machine: the SMBIOS table holds no"}}) {
    platform::SimulatedMachine machine;
    machine.firmware().Change([&](auto& state) {
      state.smbios = row.smbios;
      if (!row.system_knows) state.facts = {};
    });
    machine.processors().Change([](auto& state) { state.topology = {}; });
    for (const auto& [inspect, exit_code, said] : {std::tuple(&RunInspectMemory, row.memory, row.said),
                                                   {&RunInspectFirmware, row.firmware, row.said},
                                                   {&RunInspectCpu, 3, "nothing tells of its processors"}}) {
      SCOPED_TRACE(testing::Message() << row.what << ", " << said);
      std::ostringstream out;
      std::ostringstream errors;
      EXPECT_EQ(inspect({.smbios_file = {}, .json = false, .machine_name = "this machine"}, machine, out, errors),
                exit_code);
      EXPECT_EQ(out.str().empty(), exit_code != 0);
      const std::string complaint = errors.str();
      EXPECT_NE(complaint.find(said), std::string::npos) << complaint;
      EXPECT_EQ(std::ranges::count(complaint, '\n'), said[0] == '\0' ? 0 : 1) << complaint;
      EXPECT_EQ(complaint.find("shown is what the system keeps") != std::string::npos,
                exit_code == 0 && row.memory != 0);
    }
  }
}

}  // namespace
}  // namespace tvkctl

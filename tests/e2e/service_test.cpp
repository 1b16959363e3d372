// The service from its command line to its records, on every system.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <sstream>

#include "client/records/record_text.h"
#include "client/store/event_data_logging.h"
#include "client/store/sqlite_database.h"
#include "platform/files.h"
#include "platform/local.h"
#include "tests/e2e/service_under_test.h"

namespace {

using TVK::RecordKind;

std::size_t CountCpuItems(const ServiceFolder& folder, const std::string& item_name) {
  const auto items = folder.Records({.kind = RecordKind::kItem, .dataset_name = L"CPUEvent"});
  return static_cast<std::size_t>(std::ranges::count_if(items, [&](const TVK::StoredRecord& record) {
    return record.json.find('"' + item_name + '"') != std::string::npos;
  }));
}

TEST(Service, FirstStartDescribesTheMachineAndTheSecondAddsNothing) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full", R"("ReadUsageInterval": "1m", "CPUPeakThreshold": "100")"));
  {
    ConsoleService service(folder);
    EXPECT_TRUE(service.WaitForLine("(device context)", kPatience));
    EXPECT_TRUE(service.WaitForLine(CpuLine("(dataset context)"), kPatience));
    EXPECT_TRUE(service.WaitForLine(CpuLine("DeviceInit"), kPatience));
  }
  EXPECT_EQ(folder.Records({.kind = RecordKind::kDevice}).size(), 1u);
  EXPECT_EQ(folder.Records({.kind = RecordKind::kDataset, .dataset_name = L"CPUEvent"}).size(), 1u);
  EXPECT_EQ(CountCpuItems(folder, "DeviceInit"), 1u);

  constexpr char kTimersStarted[] = "CpuEventMonitor::ReadAndUpdateDatasetSettings: delay";
  const std::size_t started_before = folder.CountInLog("CpuEventMonitor.log", kTimersStarted);
  ConsoleService service(folder);
  ASSERT_TRUE(service.WaitFor([&] { return folder.CountInLog("CpuEventMonitor.log", kTimersStarted) > started_before; },
                              kPatience));
  EXPECT_EQ(folder.Records({.kind = RecordKind::kDevice}).size(), 1u) << "the same device has one context";
  EXPECT_EQ(CountCpuItems(folder, "DeviceInit"), 1u) << "a device is initialised once";
}

TEST(Service, TellsItsStatusAndOneThatIsGoneTellsNone) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  std::vector<std::string> lines;
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--data-dir", platform::PathToUtf8(folder.data())});
    ChildProcess tvkctl(ProgramBeside("tvkctl"), arguments);
    const std::optional<int> exit_code = tvkctl.WaitForEnd(kPatience);
    lines = tvkctl.Lines();
    return exit_code;
  };
  const auto status = [&] { return run({"status"}); };
  EXPECT_EQ(status(), 3) << "not started";
  for (int life = 0; life < 2; ++life) {
    // The second one finds what the killed one left.
    ConsoleService service(folder);
    // It answers before its manager has read the policy and described the device.
    ASSERT_TRUE(service.WaitFor([&] { return status() == 0 && CountLines(lines, "full") == 1; }, kPatience));
    EXPECT_EQ(CountLines(lines, "CPUEvent"), 1u);
    EXPECT_TRUE(service.WaitFor(
        [&] {
          return run({"doctor", "--dataset", "CPUEvent"}) == 0;
        },
        kPatience))
        << testing::PrintToString(lines);
    EXPECT_TRUE(service.WaitFor(
        [&] {
          return run({"event", "--dataset", "TVKEvent", "--item", "DockUsed"}) == 2;
        },
        kPatience));
    EXPECT_EQ(CountLines(lines, "does not admit TVKEvent: not listed"), 1u);
    service.Ask(ChildRequest::kKill);
    service.WaitForEnd(kPatience);
    EXPECT_EQ(status(), 3) << "killed";
  }
}

TEST(Service, EndsByItselfWhenItsTimeIsOver) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const auto runtime = platform::MakeRealRuntime({});
  const platform::SteadyTime begin = runtime->clock().Steady();
  ConsoleService service(folder, {"--for", "5s"});
  EXPECT_EQ(service.WaitForEnd(kPatience), 0);
  EXPECT_GE(runtime->clock().Steady() - begin, std::chrono::seconds(5));
  EXPECT_TRUE(service.WaitForLine(CpuLine("DeviceInit"), std::chrono::seconds(0)));
}

TEST(Service, WhatItCannotStartWithEndsItWithACodeAndAMessage) {
  struct Row {
    std::vector<std::string> arguments;
    std::string policy;
    int exit_code;
    std::string named;
    bool begun;
  };
  const std::string good = CpuPolicy("full");
  const std::string file = platform::PathToUtf8(ProgramBeside("tvkctl"));
  for (const Row& row : {
           Row{{"--fro", "2s"}, good, 1, "--fro", false},
           Row{{"--for", "soon"}, good, 1, "soon", false},
           Row{{"--for", "0s"}, good, 1, "0s", false},
           Row{{"--sysroot"}, good, 1, "--sysroot", false},
           Row{{"--log-dir", ""}, good, 1, "--log-dir", false},
           Row{{"--sysroot", file}, good, 2, "tvkctl", false},
           Row{{"--log-dir", file}, good, 2, "tvkctl", true},
           Row{{}, "", 2, "policy.json", true},
           Row{{}, R"({"telemetryScope": "full", "datasets": [{"id": "x", "name": 3}]})", 2, "datasets[0].name", true},
       }) {
    SCOPED_TRACE(testing::PrintToString(row.arguments) + row.policy);
    const ServiceFolder folder;
    folder.WritePolicy(row.policy);
    ConsoleService service(folder, row.arguments);
    EXPECT_EQ(service.WaitForEnd(kPatience), row.exit_code);
    EXPECT_GE(CountLines(service.Lines(), row.named), 1u) << "the message names what is wrong";
    EXPECT_EQ(exists(folder.data()), row.begun);
  }
}

TEST(Service, LeavesAFileThatIsNotItsOwnAlone) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  std::filesystem::create_directories(folder.data());
  const std::filesystem::path file = folder.data() / TVK::kStoreFileName;
  for (const bool database : {false, true}) {
    SCOPED_TRACE(database);
    std::filesystem::remove(file);
    if (database) {
      TVK::Database other;
      ASSERT_EQ(other.Open(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), 0);
      ASSERT_EQ(other.Execute("CREATE TABLE song(title)"), 0);
    } else {
      ASSERT_EQ(platform::ReplaceFile(file, "a list of records that somebody keeps"), "");
    }
    const auto content = platform::ReadWholeFile(file, 1u << 20);
    ConsoleService service(folder);
    EXPECT_EQ(service.WaitForEnd(kPatience), 2);
    EXPECT_EQ(CountLines(service.Lines(), "records.db is not this client's, and is left as it is"), 1u);
    EXPECT_EQ(platform::ReadWholeFile(file, 1u << 20), content);
  }
}

TEST(Service, WaitsForAPolicyWhenThereIsNone) {
  const ServiceFolder folder;
  ConsoleService service(folder);
  ASSERT_TRUE(
      service.WaitForLine("policy.json: there is no policy: nothing is collected until there is one", kPatience));
  // The device context is no dataset of a policy.
  ASSERT_TRUE(service.WaitForLine("(device context)", kPatience));
  folder.WritePolicy(CpuPolicy("full"));
  EXPECT_TRUE(service.WaitForLine("DeviceInit", kPatience));
}

TEST(Service, RunsWithTheLastGoodPolicyWhenTheFileIsBroken) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  {
    ConsoleService service(folder);
    ASSERT_TRUE(service.WaitForLine(CpuLine("DeviceInit"), kPatience));
  }
  folder.WritePolicy(R"({"telemetryScope": "everything", "datasets": []})");
  ConsoleService service(folder);
  EXPECT_TRUE(service.WaitForLine("telemetryScope", kPatience)) << "the mistake is told";
  EXPECT_TRUE(service.WaitFor(
      [&] { return folder.CountInLog("EventManager.log", "EventManager Initialize is starting CPUEvent") == 2; },
      kPatience));
}

TEST(Service, KilledUnderLoadItHasKeptEveryRecordThatItShowed) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full", R"("CPUPeakThreshold": "1", "CPUPeakThresholdDuration": "15ms")"));
  const Load load;
  std::map<std::string, int> shown;
  for (int round = 1; round <= 3; ++round) {
    ConsoleService service(folder);
    ASSERT_TRUE(service.WaitForLine("CPUNearCapacity", kPatience));
    service.Ask(ChildRequest::kKill);
    ASSERT_TRUE(service.WaitForEnd(kPatience).has_value());
    std::vector<std::string> lines = service.Lines();
    ASSERT_FALSE(lines.empty());
    lines.erase(lines.begin());  // the names of the columns
    for (const std::string& line : lines)
      ++shown[line];
  }

  std::int64_t sound = 0;
  {
    TVK::Database database;
    ASSERT_EQ(database.Open(folder.data() / TVK::kStoreFileName, SQLITE_OPEN_READWRITE), 0);
    std::string verdict;
    EXPECT_EQ(database.ReadText("PRAGMA integrity_check", verdict), 0);
    EXPECT_EQ(verdict, "ok");
    EXPECT_EQ(database.ReadNumber("SELECT count(*) FROM record", sound), 0);
  }
  std::map<std::string, int> stored;
  const std::vector<TVK::StoredRecord> records = folder.Records();
  EXPECT_EQ(static_cast<std::int64_t>(records.size()), sound);
  for (const TVK::StoredRecord& record : records) {
    std::istringstream text(TVK::RecordTableLine(record.kind, record.json));
    for (std::string line; std::getline(text, line);)
      ++stored[line];
  }
  EXPECT_GE(CountCpuItems(folder, "CPUNearCapacity"), 3u);
  for (const auto& [line, count] : shown)
    EXPECT_GE(stored[line], count) << line;

  ConsoleService again(folder);
  EXPECT_TRUE(again.WaitForLine("CPUNearCapacity", kPatience));
  for (const auto& entry : std::filesystem::directory_iterator(folder.data())) {
    EXPECT_EQ(platform::PathToUtf8(entry.path()).find(".corrupt-"), std::string::npos) << "no store was set aside";
  }
}

}  // namespace

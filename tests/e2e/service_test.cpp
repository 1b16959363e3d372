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

std::size_t CountKind(const std::vector<TVK::StoredRecord>& records, RecordKind kind) {
  return static_cast<std::size_t>(std::ranges::count(records, kind, &TVK::StoredRecord::kind));
}

std::size_t CountItems(const std::vector<TVK::StoredRecord>& records, const std::string& item_name) {
  return static_cast<std::size_t>(std::ranges::count_if(records, [&](const TVK::StoredRecord& record) {
    return record.kind == RecordKind::kItem && record.json.find('"' + item_name + '"') != std::string::npos;
  }));
}

TEST(Service, FirstStartDescribesTheMachineAndTheSecondAddsNothing) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full", R"("ReadUsageInterval": "1m", "CPUPeakThreshold": "100")"));
  {
    ConsoleService service(folder);
    EXPECT_TRUE(service.WaitForLine("(device context)", kPatience));
    EXPECT_TRUE(service.WaitForLine("(dataset context)", kPatience));
    EXPECT_TRUE(service.WaitForLine("DeviceInit", kPatience));
  }
  const std::vector<TVK::StoredRecord> first = folder.Records();
  EXPECT_EQ(CountKind(first, RecordKind::kDevice), 1u);
  EXPECT_EQ(CountKind(first, RecordKind::kDataset), 1u);
  EXPECT_EQ(CountItems(first, "DeviceInit"), 1u);

  constexpr char kTimersStarted[] = "CpuEventMonitor::ReadAndUpdateDatasetSettings: delay";
  const std::size_t started_before = folder.CountInLog("CpuEventMonitor.log", kTimersStarted);
  ConsoleService service(folder);
  ASSERT_TRUE(service.WaitFor([&] { return folder.CountInLog("CpuEventMonitor.log", kTimersStarted) > started_before; },
                              kPatience));
  const std::vector<TVK::StoredRecord> second = folder.Records();
  EXPECT_EQ(CountKind(second, RecordKind::kDevice), 1u) << "the same device has one context";
  EXPECT_EQ(CountItems(second, "DeviceInit"), 1u) << "a device is initialised once";
}

TEST(Service, EndsByItselfWhenItsTimeIsOver) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const auto runtime = platform::MakeRealRuntime({});
  const platform::SteadyTime begin = runtime->clock().Steady();
  ConsoleService service(folder, {"--for", "2s"});
  EXPECT_EQ(service.WaitForEnd(kPatience), 0);
  EXPECT_GE(runtime->clock().Steady() - begin, std::chrono::seconds(2));
  EXPECT_TRUE(service.WaitForLine("DeviceInit", std::chrono::seconds(0)));
}

TEST(Service, WrongCommandLinesEndWithOne) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--fro", "2s"}, "--fro"},   {{"--for", "soon"}, "soon"}, {{"--for", "0s"}, "0s"},
      {{"--sysroot"}, "--sysroot"}, {{"--for", ""}, "--for"},    {{"--log-dir", ""}, "--log-dir"}};
  for (const auto& [arguments, named] : cases) {
    SCOPED_TRACE(named);
    ConsoleService service(folder, arguments);
    EXPECT_EQ(service.WaitForEnd(kPatience), 1);
    EXPECT_GE(CountLines(service.Lines(), named), 1u) << "the message names what is wrong";
  }
  EXPECT_FALSE(exists(folder.data())) << "nothing was begun";
}

TEST(Service, WithoutAnyGoodPolicyItEndsWithTwoAndNamesFileAndPlace) {
  const std::vector<std::pair<std::optional<std::string>, std::string>> cases = {
      {std::nullopt, "policy.json"},
      {"", "policy.json"},
      {"{ not json", "policy.json"},
      {R"({"telemetryScope": "full", "datasets": [{"id": "x", "name": 3, "enabled": true}]})", "datasets[0].name"}};
  for (const auto& [text, named] : cases) {
    SCOPED_TRACE(text.value_or("no file"));
    const ServiceFolder folder;
    if (text) folder.WritePolicy(*text);
    ConsoleService service(folder);
    EXPECT_EQ(service.WaitForEnd(kPatience), 2);
    EXPECT_GE(CountLines(service.Lines(), "policy.json"), 1u);
    EXPECT_GE(CountLines(service.Lines(), named), 1u);
  }
}

TEST(Service, FoldersThatCannotBeUsedEndItWithTwo) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const std::string file = platform::PathToUtf8(folder.policy());
  for (const char* const option : {"--sysroot", "--log-dir"}) {
    SCOPED_TRACE(option);
    ConsoleService service(folder, {option, file});
    EXPECT_EQ(service.WaitForEnd(kPatience), 2);
    EXPECT_GE(CountLines(service.Lines(), "policy.json"), 1u) << "the message names the folder";
    if (option == std::string("--sysroot")) {
      EXPECT_FALSE(exists(folder.data())) << "nothing was begun";
    }
  }
}

TEST(Service, RunsWithTheLastGoodPolicyWhenTheFileIsBroken) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  {
    ConsoleService service(folder);
    ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
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
  EXPECT_GE(CountItems(records, "CPUNearCapacity"), 3u);
  for (const auto& [line, count] : shown)
    EXPECT_GE(stored[line], count) << line;

  ConsoleService again(folder);
  EXPECT_TRUE(again.WaitForLine("CPUNearCapacity", kPatience));
  for (const auto& entry : std::filesystem::directory_iterator(folder.data())) {
    EXPECT_EQ(platform::PathToUtf8(entry.path()).find(".corrupt-"), std::string::npos) << "no store was set aside";
  }
}

}  // namespace

// The service over a journal that is written to while it runs.
#include <gtest/gtest.h>
#include <json/json.h>

#include <iomanip>
#include <map>
#include <sstream>

#include "platform/local.h"
#include "testing/journal_linux.h"
#include "tests/e2e/service_under_test.h"

namespace {

constexpr char kPolicy[] = R"({"telemetryScope": "full", "datasets": [
  {"id": "F7A8403B-268C-4E8A-8474-7EAF7B1E726E", "name": "EventViewerLogsEvent", "enabled": true,
   "settings": {"LogLevels": "00000010", "EventsPerMinute": "6000"}}]})";

/// Seconds since the first moment that JournalWriter has.
std::uint64_t Now() {
  return static_cast<std::uint64_t>(platform::MakeRealRuntime({})->clock().NowSeconds()) - 1'767'222'000;
}

std::string Entry(std::size_t number) {
  std::ostringstream id;
  id << std::hex << std::setw(4) << std::setfill('0') << number;
  return "SYSLOG_IDENTIFIER=test\nPRIORITY=3\nMESSAGE_ID=" + id.str() + "0000000000000000000000000000";
}

class EventLogs : public testing::Test {
 protected:
  EventLogs() { folder_.WritePolicy(kPolicy); }

  std::vector<std::string> Arguments() const { return {"--sysroot", root_.path().string()}; }
  static std::string Line() { return "LoggedEvent "; }
  Json::Value ItemData(const TVK::StoredRecord& record) const {
    Json::Value value;
    std::istringstream(record.json) >> value;
    return value["item_data"];
  }
  /// How often each id was recorded, and how many events were counted beyond.
  std::map<std::string, int> Recorded(std::uint64_t& skipped) const {
    std::map<std::string, int> ids;
    skipped = 0;
    for (const TVK::StoredRecord& record : folder_.Records({.dataset_name = L"EventViewerLogsEvent"})) {
      const Json::Value data = ItemData(record);
      if (data.isMember("EventID")) ++ids[data["EventID"].asString()];
      if (data.isMember("Count")) skipped += std::stoull(data["Count"].asString());
    }
    return ids;
  }

  const ServiceFolder folder_;
  const TempFolder root_;
  JournalWriter journal_{root_.path() / "var/log/journal/a.journal", Now() - 3600};
};

TEST_F(EventLogs, EachEventOfAFloodOnceWhateverKillsTheService) {
  constexpr std::size_t kEvents = 2000;
  for (std::size_t i = 0; i < kEvents; ++i)
    journal_.Add(Entry(i));
  journal_.Write();
  std::uint64_t skipped = 0;
  constexpr std::size_t kBeforeAKill = 100;
  std::size_t done = 0;
  // As often as there is enough left of it.
  for (int life = 0; life < 3 && kEvents - done > 2 * kBeforeAKill; ++life) {
    ConsoleService service(folder_, Arguments());
    ASSERT_TRUE(service.WaitFor([&] { return CountLines(service.Lines(), Line()) > kBeforeAKill; }, kPatience));
    service.Ask(ChildRequest::kKill);
    service.WaitForEnd(kPatience);
    done = Recorded(skipped).size();
  }
  ConsoleService service(folder_, Arguments());
  ASSERT_TRUE(service.WaitFor([&] { return Recorded(skipped).size() == kEvents; }, kPatience));
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kPatience), 0);
  for (const auto& [id, count] : Recorded(skipped))
    EXPECT_EQ(count, 1) << id;
  EXPECT_EQ(skipped, 0u);
}

TEST_F(EventLogs, WhatIsLoggedWhileItRunsIsShown) {
  journal_.Add(Entry(1));
  journal_.Write();
  ConsoleService service(folder_, Arguments());
  ASSERT_TRUE(service.WaitForLine("EventID=1", kPatience));
  journal_.Add(Entry(2));
  journal_.Write();
  EXPECT_TRUE(service.WaitForLine("EventID=2", kPatience));
}

}  // namespace

#include "apps/tvkctl/report/report_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <vector>

#include "client/store/erasure.h"
#include "client/store/event_data_logging.h"
#include "platform/files.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

using std::chrono::hours;
using std::chrono::minutes;

class ReportTest : public testing::Test {
 protected:
  int Run(const std::string& since = {}, const std::filesystem::path& html = {}, std::size_t width = 200) {
    out_.str("");
    errors_.str("");
    const ReportOptions options{.data_dir = folder_.path(),
                                .standing = [this] { return standing_; },
                                .since = since,
                                .html_file = html,
                                .width = width};
    return RunReport(options, world_, out_, errors_);
  }
  void ExpectLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
      EXPECT_NE(out_.str().find(line), std::string::npos) << line << '\n' << out_.str();
  }

  void OpenStore() {
    store_.emplace(TVK::StoreOptions{.file = folder_.path() / TVK::kStoreFileName, .limits = {}}, world_.clock());
  }
  void Item(const std::wstring& dataset, const std::wstring& item, const ItemData& data = {},
            const std::wstring& context = {}) {
    ItemEvent event;
    event.set_dataset_id(dataset);
    event.set_dataset_name(dataset);
    event.set_item_id(item);
    event.set_item_name(item);
    event.set_dataset_context_id(context);
    event.set_item_data(data);
    EXPECT_EQ(store_->LogItemEvent(event), 0);
  }
  void Context(const std::wstring& dataset, const std::wstring& id, const ItemData& data) {
    DatasetContext context;
    context.set_dataset_id(dataset);
    context.set_dataset_name(dataset);
    context.set_dataset_context_id(id);
    context.set_item_data(data);
    EXPECT_EQ(store_->LogDatasetContext(context), 0);
  }
  void Device(const std::wstring& os_name) {
    DeviceContext device;
    device.device_info().set_device_manufacturer(L"Contoso");
    device.device_info().set_os_name(os_name);
    EXPECT_EQ(store_->LogDeviceContext(device), 0);
  }

  const TempFolder folder_;
  platform::VirtualRuntime world_;
  std::optional<TVK::EventDataLogging> store_;
  Standing standing_{.answered = true,
                     .up = true,
                     .policy_file = "policy.json",
                     .scope = "full",
                     .datasets = {{"CPUEvent", "runs", ""}, {"AlexaEvent", "collects nothing yet", ""}}};
  std::ostringstream out_;
  std::ostringstream errors_;
};

TEST_F(ReportTest, AnswersTheOwnersQuestionsInFewLines) {
  EXPECT_EQ(Run(), 2) << "there is no store";
  OpenStore();
  Device(L"Debian\u202E");
  Item(L"CPUEvent", L"ReadUsagePerInterval");
  world_.AdvanceBy(hours(9));
  Item(L"MemoryEvent", L"Memory change");
  Item(L"CPUEvent", L"ReadUsagePerInterval");
  world_.AdvanceBy(minutes(3));
  EXPECT_EQ(Run(), 0) << errors_.str();
  ExpectLines({"leaves this PC      nothing: ", "is recorded         scope \"full\": 1 dataset\n",
               "is kept             4 records, 2026-01-01 00:00 to 2026-01-01 09:00 (local)",
               "for how long        90 days and 64 MiB at most", "the machine         Contoso, Debian?\n",
               "nothing recorded    9 hours from 2026-01-01 00:00: asleep, or nothing was due\n",
               "CPUEvent            2 records, the last one 3 minutes ago\n", "MemoryEvent         1 record, the",
               "facts of the PC     1 record, the", "to stop it          \"telemetryScope\": \"none\" in policy.json",
               "to delete it        tvkctl --data-dir " + folder_.path().string() +
                   " erase --all --yes; with --stop "
                   "--policy policy.json the scope is"});
  EXPECT_EQ(errors_.str(), "");

  for (const wchar_t* const dataset : {L"A", L"B", L"C", L"D", L"E"})
    Item(dataset, L"X");
  world_.AdvanceBy(hours(5));
  EXPECT_EQ(Run({}, {}, 80), 0);
  // The first answer ends with the store's path, and the folder stands in two commands at the end: three lines less
  // where the service is installed.
  const std::string shown = out_.str();
  const auto rest = std::next(shown.begin(), static_cast<std::ptrdiff_t>(shown.find("is recorded  ")));
  EXPECT_LE(std::count(rest, shown.end(), '\n'), 16) << shown;
  ExpectLines({"nothing recorded    5 hours from 2026-01-01 09:03 until now\n", "others              "});

  standing_.up = false;
  EXPECT_EQ(Run("6h"), 0);
  ExpectLines({"since then          7 records, 2026-01-01 09:00 to", "until now: no service runs\n",
               "full\": 1 dataset by the policy; no service runs\n"});
  EXPECT_EQ(out_.str().find("is kept"), std::string::npos);
  EXPECT_EQ(Run("1h"), 0);
  ExpectLines({"since then          0 records\n"});
  EXPECT_EQ(Run("elevenses"), 1);
}

TEST_F(ReportTest, NumbersOfDatasetsStandBelowEachOtherWhereThereIsRoom) {
  OpenStore();
  Item(L"PCIe_NVMe_SelfTestResult", L"X");
  Item(L"CPUEvent", L"ReadUsagePerInterval");
  struct {
    std::size_t width;
    std::vector<std::string> lines;
  } const rows[] = {
      {200,
       {"PCIe_NVMe_SelfTestResult  1 record,", "CPUEvent                  1 record,", "to look at it       tvkctl"}},
      {80, {"PCIe_NVMe_SelfTestResult  1 record,", "CPUEvent                  1 record,"}},
      {60, {"PCIe_NVMe_SelfTestResult\n                      1 record,"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.width);
    EXPECT_EQ(Run({}, {}, row.width), 0);
    ExpectLines(row.lines);
  }
  Item(L"ANameThatIsLongerThanThatOfAnyDatasetOfOurs", L"X");
  EXPECT_EQ(Run(), 0);
  ExpectLines(rows[0].lines);
}

TEST_F(ReportTest, WithoutAServiceItClaimsNoPolicyThatNobodyKnows) {
  OpenStore();
  Item(L"CPUEvent", L"X");
  struct {
    Standing standing;
    const char* said;
  } const rows[] = {
      {{.answered = true, .up = true}, "is recorded         nothing: there is no policy\n"},
      {{.up = false, .policy_file = "policy.json"},
       "is recorded         nothing: no service runs; a policy is not known (--policy)\n"},
      {{.up = std::nullopt, .policy_file = "policy.json"},
       "is recorded         not known: this account may ask neither service nor policy\n"},
      {{.up = false, .problem = "$: no object"}, "is recorded         not known: $: no object\n"},
  };
  for (const auto& row : rows) {
    standing_ = row.standing;
    EXPECT_EQ(Run(), 0);
    ExpectLines({row.said});
  }
}

TEST_F(ReportTest, NamesGapsByWhatEndsThem) {
  OpenStore();
  const auto regular = [&](int count, bool cpu) {
    for (; count > 0; --count) {
      world_.AdvanceBy(minutes(30));
      if (cpu) Item(L"CPUEvent", L"ReadUsagePerInterval");
      Item(L"MemoryEvent", L"MemoryUsagePerInterval");
    }
  };
  Context(L"CPUEvent", L"1", {{L"cpu_name", L"P"}});
  regular(10, true);
  world_.AdvanceBy(hours(3));
  Context(L"CPUEvent", L"2", {{L"cpu_name", L"P"}});  // the same again: its monitor was started
  regular(10, true);
  world_.AdvanceBy(hours(7));
  Context(L"CPUEvent", L"3", {{L"cpu_name", L"P"}});
  Item(L"SystemBIOSEvent", L"ReadInfoPerBoot");
  regular(9, false);
  regular(4, true);
  EXPECT_EQ(Run(), 0);
  ExpectLines(
      {"nothing recorded    7 hours from 2026-01-01 13:00: the PC was off\n",
       "nothing recorded    3 hours from 2026-01-01 05:00: the PC or the service was off, or there was no consent\n",
       "CPUEvent            27 records, the last one 0 seconds ago; 1 gap, 12 hours from 2026-01-01 13:00\n",
       "MemoryEvent         33 records, the last one 0 seconds ago\n"});
  EXPECT_EQ(Run("6h", "-"), 0);
  EXPECT_NE(out_.str().find("Never for an hour"), std::string::npos);
  regular(9, false);
  EXPECT_EQ(Run("9h", "-"), 0);
  ExpectLines({"Never for an hour", "<th scope=\"row\">CPUEvent</th><td>4 hours from", " until now</td>"});
}

TEST_F(ReportTest, AStartLongAfterAGapDoesNotNameIt) {
  OpenStore();
  for (const auto& [late, said] :
       {std::pair(minutes(2), "the PC or the service was off"), std::pair(minutes(3), "asleep, or nothing was due")}) {
    Context(L"CPUEvent", L"before" + std::to_wstring(late.count()), {{L"cpu_name", L"P"}});
    world_.AdvanceBy(hours(2 + late.count()));
    Item(L"MemoryEvent", L"Memory change");
    world_.AdvanceBy(late);
    Context(L"CPUEvent", L"behind" + std::to_wstring(late.count()), {{L"cpu_name", L"P"}});
    EXPECT_EQ(Run(), 0);
    ExpectLines({"nothing recorded    " + std::to_string(2 + late.count()) + " hours from ", said});
  }
}

TEST_F(ReportTest, ADatasetOfTwoRegularItemsIsSilentWhenBothAre) {
  OpenStore();
  for (int i = 0; i < 20; ++i) {
    world_.AdvanceBy(minutes(30));
    if (i < 4) Item(L"CPUEvent", L"FirstPerInterval");
    Item(L"CPUEvent", L"SecondPerInterval");
  }
  EXPECT_EQ(Run(), 0);
  ExpectLines({"CPUEvent            24 records, the last one 0 seconds ago\n"});
}

TEST_F(ReportTest, WhatIsDeletedForItsAgeIsNoGap) {
  OpenStore();
  Item(L"CPUEvent", L"LastOfItsSeries");
  world_.AdvanceBy(hours(24 * 120));
  for (int i = 0; i < 40; ++i) {
    Item(L"CPUEvent", L"ReadUsagePerInterval");
    world_.AdvanceBy(minutes(30));
  }
  EXPECT_EQ(Run(), 0);
  ExpectLines({"is kept             41 records, 2026-01-01 00:00 to 2026-05-01 19:30",
               "nothing recorded    89 days from 2026-01-31 20:00"});
}

TEST_F(ReportTest, ARemovalForAgeIsNoDeletionOfTheTimeBehindIt) {
  OpenStore();
  const auto a_day = [&] {
    for (int i = 0; i < 48; ++i) {
      Item(L"CPUEvent", L"ReadUsagePerInterval");
      world_.AdvanceBy(minutes(30));
    }
  };
  a_day();
  Item(L"MemoryEvent", L"Memory change");  // stays, with holes in the numbers ahead of it and behind
  a_day();
  world_.AdvanceBy(hours(24 * 120));
  a_day();
  world_.AdvanceBy(hours(24 * 2));
  a_day();
  EXPECT_EQ(Run(), 0);
  ExpectLines(
      {"is kept             97 records, 2026-01-02 00:00 to", "2 days from 2026-05-03 23:30: asleep, or nothing"});
  EXPECT_NE(out_.str().find("86 days from "), std::string::npos) << out_.str();
  EXPECT_EQ(out_.str().find("deleted"), std::string::npos) << out_.str();
  // What is deleted of the days that are kept is told as before.
  std::uint64_t count = 0;
  ASSERT_EQ(store_->Erase({.dataset_id = "CPUEvent", .before_seconds = world_.clock().NowSeconds() - 24 * 3600}, count),
            0);
  EXPECT_EQ(Run(), 0);
  ExpectLines({": older records are deleted\n"});
}

TEST_F(ReportTest, ATimeOfWhichRecordsAreDeletedIsNoGap) {
  OpenStore();
  const auto usual = [&] {
    for (int i = 0; i < 4; ++i) {
      world_.AdvanceBy(minutes(30));
      Item(L"CPUEvent", L"ReadUsagePerInterval");
    }
  };
  Item(L"MemoryEvent", L"Memory change");
  usual();
  world_.AdvanceBy(hours(3));
  Item(L"MemoryEvent", L"Memory change");
  const std::int64_t then = world_.clock().NowSeconds();
  usual();
  Context(L"CPUEvent", L"1", {{L"cpu_name", L"P"}});
  world_.AdvanceBy(hours(4));
  Context(L"CPUEvent", L"2", {{L"cpu_name", L"P"}});  // started
  Item(L"SystemBIOSEvent", L"ReadInfoPerBoot");
  EXPECT_EQ(Run(), 0);
  ExpectLines({"nothing recorded    4 hours from 2026-01-01 07:00: the PC was off\n",
               "nothing recorded    3 hours from 2026-01-01 02:00: asleep, or nothing was due\n"});
  std::uint64_t count = 0;
  ASSERT_EQ(store_->Erase({.dataset_id = "CPUEvent", .before_seconds = then}, count), 0);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(Run(), 0);
  ExpectLines({"nothing recorded    5 hours from 2026-01-01 00:00: older records are deleted\n",
               "nothing recorded    4 hours from 2026-01-01 07:00: the PC was off\n"});
  EXPECT_EQ(Run("210m"), 0);
  ExpectLines({"nothing recorded    3 hours from 2026-01-01 07:30: the PC was off\n"});
  ASSERT_EQ(store_->Erase({.dataset_id = "CPUEvent"}, count), 0);
  EXPECT_EQ(Run(), 0);
  ExpectLines({"nothing recorded    6 hours from 2026-01-01 05:00: older records are deleted\n"});
  ASSERT_EQ(store_->Erase({.dataset_id = "SystemBIOSEvent"}, count), 0);
  EXPECT_EQ(Run(), 0);
  ExpectLines({"nothing recorded    6 hours from 2026-01-01 05:00: older records are deleted\n"});
  world_.AdvanceBy(hours(1));
  Item(L"MemoryEvent", L"Memory change");
  world_.AdvanceBy(hours(2));
  EXPECT_EQ(Run("150m"), 0);
  ExpectLines({"nothing recorded    2 hours from 2026-01-01 12:00 until now"});
  world_.AdvanceBy(hours(2));
  Item(L"MemoryEvent", L"Memory change");
  EXPECT_EQ(Run("2h"), 0);
  ExpectLines({"nothing recorded    2 hours from 2026-01-01 14:00: asleep, or nothing was due\n"});
}

TEST_F(ReportTest, MakesAPageOfWhichNoTextOfARecordIsAPart) {
  OpenStore();
  const std::wstring hostile = L"</style><script>x</script>\"'><img src=x onerror=y>\u202E&";
  Device(hostile);
  Context(L"CPUEvent", L"1", {{hostile, hostile}});
  Context(L"CPUEvent", L"2", {{hostile, L"another"}});
  Context(L"BatteryEvent", L"3", {{L"Id", hostile}, {L"DesignChargeCapacity", L"50000"}});
  Context(L"SMARTEvent", L"4", {{L"Model", hostile}});
  Item(hostile, hostile);
  Item(L"CPUEvent", L"ReadUsagePerInterval", {{L"CPUUtilization", L"37"}});
  Item(L"CPUEvent", L"CPUNearCapacity", {{L"CPUUtilization", L"99"}});
  Item(L"MemoryEvent", L"Memory change", {{L"FreePhysicalMemory", L"250MB"}, {L"VisibleMemory", L"1000MB"}});
  Item(L"BatteryEvent", L"ConnectToAC", {{L"BatteryChargeRemaining", L"81"}, {L"FullChargeCapacity", L"45000"}}, L"3");
  Item(L"SMARTEvent", L"ReadSMARTPerDay",
       {{L"Temperature", LR"({ "raw": "1638440","normalized": "60","threshold": "10","worst": "9"})"},
        {L"LifeLeft", LR"({ "raw": "0","normalized": "88","threshold": "10","worst": "9"})"},
        {L"AirflowTemperature", L"{\"raw\":"}},
       L"4");
  world_.AdvanceBy(hours(2));
  standing_.problem = standing_.policy_file = "<script>";
  standing_.datasets.push_back({"<script>", "<script>", "<script>"});
  const std::filesystem::path file = folder_.path() / "report.html";
  EXPECT_EQ(Run({}, file), 0) << errors_.str();
  EXPECT_NE(out_.str().find("report.html"), std::string::npos);
  std::ifstream stream(file, std::ios::binary);
  const std::string page((std::istreambuf_iterator<char>(stream)), {});
  EXPECT_EQ(Run({}, "-"), 0);
  EXPECT_EQ(out_.str(), page);

  EXPECT_EQ(page.find("<script"), std::string::npos);
  EXPECT_EQ(page.find("<img"), std::string::npos);
  EXPECT_EQ(page.find("\xE2\x80\xAE"), std::string::npos);
  EXPECT_NE(page.find("default-src 'none'"), std::string::npos);
  std::map<std::string, int> open;  // every element that begins ends
  const std::regex tag("<(/?)([a-z0-9]+)[^>]*>");
  for (std::sregex_iterator at(page.begin(), page.end(), tag), end; at != end; ++at) {
    const bool empty = (*at)[0].str().ends_with("/>") || (*at)[2] == "meta" || (*at)[2] == "link";
    if (!empty) open[(*at)[2]] += (*at)[1].length() > 0 ? -1 : 1;
  }
  for (const auto& [name, count] : open)
    EXPECT_EQ(count, 0) << name;
  for (const char* const said :
       {">37 %</li>", ">75 %</li>", "&amp;: 81 %</li>", "&amp;: 90 %</li>", "&amp;: 40 \u00B0C</li>",
        "&amp;: 12 %</li>", "CPUEvent, CPUNearCapacity: 1 record", "<td>another</td>", "2 hours from 2026-01-01 00:00"})
    EXPECT_NE(page.find(said), std::string::npos) << said;

  const std::filesystem::path link = folder_.path() / "link.html";
  std::filesystem::create_directory(link);
  EXPECT_EQ(Run({}, link), 3);
  EXPECT_NE(errors_.str().find("no regular file"), std::string::npos);
  store_.reset();  // Windows removes no file that is open
  std::filesystem::remove(folder_.path() / TVK::kStoreFileName);
  EXPECT_EQ(Run({}, folder_.path() / "absent" / "report.html"), 3) << "told before the store is looked for";
  EXPECT_NE(errors_.str().find("absent"), std::string::npos);
}

}  // namespace
}  // namespace tvkctl

#include "apps/tvkctl/erase_command.h"

#include <gtest/gtest.h>

#include <sstream>

#include "client/store/sqlite_database.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/local_channel.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/manager_world.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

class EraseCommandTest : public testing::Test {
 protected:
  EraseCommandTest() {
    std::filesystem::create_directories(options_.places.log_folder);
    Write(options_.places.log_folder / "EventManager.log", "SECRET of the log");
    Write(options_.places.log_folder / "EventManager.1.log", "SECRET of the log before");
    Write(options_.places.log_folder / "CpuEventMonitor.log", "SECRET of the processor");
    Write(data_ / "records.db.corrupt-20260101T000000", "SECRET set aside");
    Write(data_ / "policy.last-good.json", "SECRET policy");
    Write(options_.policy_file, R"({ "telemetryScope" : "full", "datasets": [], "SECRET": 1 })");
    Fill("SECRET");
  }
  static void Write(const std::filesystem::path& file, const std::string& text) {
    EXPECT_EQ(platform::ReplaceFile(file, text), "");
  }
  void Fill(const std::string& value) {
    TVK::EventDataLogging store({.file = data_ / TVK::kStoreFileName, .limits = {}}, runtime_->clock());
    ItemEvent event;
    event.set_dataset_id(L"9492447A-FCAC-428E-B7A8-7F7918199480");
    event.set_dataset_name(L"CPUEvent");
    event.set_item_data({{L"value", std::wstring(value.begin(), value.end())}});
    EXPECT_EQ(store.LogItemEvent(event), 0);
  }
  int Run() {
    out_.str("");
    errors_.str("");
    return RunErase(options_, *runtime_, out_, errors_);
  }
  std::string Said() const { return out_.str() + errors_.str(); }
  static std::int64_t Stored(const std::filesystem::path& data_folder) {
    TVK::Database database;
    std::int64_t count = -1;
    EXPECT_EQ(database.Open(data_folder / TVK::kStoreFileName, SQLITE_OPEN_READWRITE), 0);
    EXPECT_EQ(database.ReadNumber("SELECT count(*) FROM record", count), 0);
    return count;
  }
  // How many files below the folder hold the text.
  int FilesWith(const std::string& text) const {
    int files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
      if (!entry.is_regular_file()) continue;
      const std::string bytes = platform::ReadWholeFile(entry.path(), 16u << 20).value_or("");
      if (bytes.find(text) != std::string::npos) ++files;
    }
    return files;
  }

  const TempFolder folder_;
  const std::filesystem::path data_ = folder_.path() / "data";
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({folder_.path() / "run"});
  EraseOptions options_{.places = {data_, data_ / "log"},
                        .channel = platform::ChannelPlace(data_),
                        .policy_file = folder_.path() / "policy.json"};
  std::ostringstream out_;
  std::ostringstream errors_;
};

TEST_F(EraseCommandTest, LeavesNothingOfWhatItIsToldToDelete) {
  const int files = FilesWith("SECRET");
  options_.all = true;
  options_.dry_run = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_NE(Said().find("to be deleted: 1 records of every dataset"), std::string::npos) << Said();
  EXPECT_NE(Said().find("records.db.corrupt-20260101T000000"), std::string::npos) << Said();
  options_.dry_run = false;
  EXPECT_EQ(Run(), 1) << "not without --yes";
  EXPECT_EQ(FilesWith("SECRET"), files);

  options_.yes = true;
  options_.stop = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_NE(Said().find("deleted for good: 1 records, "), std::string::npos) << Said();
  EXPECT_EQ(FilesWith("SECRET"), 1) << "of the policy only the scope is another";
  EXPECT_EQ(platform::ReadWholeFile(options_.policy_file, 1000),
            R"({ "telemetryScope" : "none", "datasets": [], "SECRET": 1 })");
  EXPECT_EQ(FilesWith("erased for good"), 1) << "the receipt";
}

TEST_F(EraseCommandTest, TheScopeNoneCostsNothingElseOfThePolicy) {
  const std::filesystem::path kept = options_.policy_file.string() + ".replaced";
  const std::string nested =
      R"({"datasets":[{"id":"x","name":"telemetryScope","settings":{"telemetryScope":"full"}}],)";
  struct Row {
    const char* what;
    std::string policy;
    std::string becomes;
    int code = 0;
  };
  const Row rows[] = {
      {"the value alone", R"({"telemetryScope":"full","datasets":[]})", R"({"telemetryScope":"none","datasets":[]})"},
      {"another key of the name", nested + R"("telemetryScope": "full"})", nested + R"("telemetryScope": "none"})"},
      {"an escaped key", R"({"telemetry\u0053cope":"full","datasets":[]})",
       R"({"telemetry\u0053cope":"none","datasets":[]})"},
      {"broken", R"({"telemetryScope":"full","datasets":[],})", R"({"telemetryScope": "none", "datasets": []})"},
      {"nothing", " \n", R"({"telemetryScope": "none", "datasets": []})"},
      {"none", {}, {}, 2},
  };
  options_.all = options_.stop = true;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::filesystem::remove(kept);
    std::filesystem::remove(options_.policy_file);
    if (!row.policy.empty()) Write(options_.policy_file, row.policy);
    for (const bool yes : {false, true}) {
      options_.yes = yes;
      options_.dry_run = !yes;
      EXPECT_EQ(Run(), row.code) << Said();
      EXPECT_EQ(Said().find("the scope is \"none\"") != std::string::npos, yes && row.code == 0) << Said();
      EXPECT_EQ(platform::ReadWholeFile(options_.policy_file, 1000).value_or(""), yes ? row.becomes : row.policy);
    }
    const bool broken = row.what == std::string_view("broken");
    EXPECT_EQ(platform::ReadWholeFile(kept, 1000), broken ? std::optional(row.policy) : std::nullopt);
    EXPECT_EQ(Said().find(".replaced") != std::string::npos, broken) << Said();
  }
}

TEST_F(EraseCommandTest, OfADatasetTakesItsLogAndWhatWasSetAside) {
  options_.dataset = "cpuevent";
  options_.before = "1d";
  options_.yes = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_NE(Said().find("deleted for good: 0 records, 0 files"), std::string::npos) << Said();
  options_.before.clear();
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_NE(Said().find("deleted for good: 1 records, 2 files"), std::string::npos) << Said();
  EXPECT_TRUE(std::filesystem::exists(data_ / "policy.last-good.json"));
  EXPECT_EQ(FilesWith("SECRET of the log"), 2);
}

TEST_F(EraseCommandTest, EachDatasetOfOursIsKnownByNameWithItsLog) {
  options_.dry_run = true;
  for (const TVK::Dataset& dataset : TVK::ComponentDatasets().datasets()) {
    const std::string name = TVK::String::UTF16ToUTF8(dataset.row.name);
    SCOPED_TRACE(name);
    options_.dataset = name;
    EXPECT_EQ(Run(), 0) << Said();
    if (dataset.row.log.empty()) continue;
    const std::string log = TVK::String::UTF16ToUTF8(dataset.row.log) + ".log";
    Write(options_.places.log_folder / log, "of the dataset");
    EXPECT_EQ(Run(), 0) << Said();
    EXPECT_NE(Said().find(log), std::string::npos) << Said();
  }
}

TEST_F(EraseCommandTest, OnlyItsOwnFilesAreTaken) {
  const std::filesystem::path outside = folder_.path() / "outside";
  Write(outside, "FOREIGN");
  for (const char* const name : {"nginx.log", "EventManager.x.log", "EventManager.10.log", "MyEventManager.log"})
    Write(options_.places.log_folder / name, "FOREIGN");
  // As a killed writer leaves them here, and on the other system.
  for (const char* const name : {".policy.last-good.json.LEFT00", "policy.last-good.json.99999996-1.new"})
    Write(data_ / name, "LEFT");
  std::error_code ignored;  // an account of Windows may not make links
  std::filesystem::create_symlink(outside, options_.places.log_folder / "PolicyWatch.log", ignored);
  std::filesystem::create_symlink(outside, options_.places.log_folder / "PolicyWatch.1.log", ignored);
  const int files = FilesWith("FOREIGN");
  options_.all = true;
  options_.yes = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_EQ(FilesWith("FOREIGN"), files);
  EXPECT_EQ(FilesWith("LEFT"), 1) << "the other system's";
  EXPECT_EQ(FilesWith("SECRET"), 1) << "the policy";

  std::filesystem::create_hard_link(outside, options_.places.log_folder / "SecondTick.log");
  EXPECT_EQ(Run(), 3) << Said();
  EXPECT_EQ(FilesWith("FOREIGN"), files + 1) << "under another name it is somebody else's";
  EXPECT_TRUE(std::filesystem::exists(data_ / "erasure.json"));
}

TEST_F(EraseCommandTest, WhatWasInterruptedIsDoneAtTheNextStart) {
  const std::string cpu = R"({"erasures":[{"dataset":"9492447A-FCAC-428E-B7A8-7F7918199480","asked":4000000000,)";
  const std::string rest = R"("through":1},{"asked":4000000000,"through":1,"before":1}]})";
  const auto start = [&] {
    TVK::EventDataLogging store({.file = data_ / TVK::kStoreFileName, .limits = {}}, runtime_->clock());
    return TVK::Eraser(*runtime_, &store, options_.places, TVK::Eraser::Rest::kLeft).Finish();
  };
  Fill("LATER");
  const auto records = [&](const std::string& value) { return FilesWith(":\"" + value + "\"}"); };
  for (const std::string& unknown : {std::string(R"({"only":"another program knows"})"), cpu + R"("more":1}]})"}) {
    Write(data_ / "erasure.json", unknown);
    start();
    EXPECT_EQ(records("SECRET"), 1);
    options_.all = true;
    options_.yes = true;
    EXPECT_EQ(Run(), 3);
    EXPECT_NE(Said().find("nothing was deleted"), std::string::npos) << Said();
    EXPECT_EQ(records("SECRET"), 1) << "what is asked for already is not forgotten for something new";
  }
  Write(data_ / "erasure.json", cpu + R"("before":1,)" + rest);
  EXPECT_TRUE(start());
  EXPECT_EQ(records("SECRET"), 1) << "before 1970 there was nothing";
  EXPECT_FALSE(std::filesystem::exists(data_ / "erasure.json"));
  Write(data_ / "erasure.json", cpu + rest);
  EXPECT_TRUE(start());
  EXPECT_EQ(records("SECRET"), 0);
  EXPECT_EQ(records("LATER"), 1) << "written after it was asked for";
}

TEST_F(EraseCommandTest, AReaderOfTheOldStateOnlyDelaysTheEnd) {
  platform::VirtualRuntime virtual_runtime;
  TVK::EventDataLogging store({.file = data_ / TVK::kStoreFileName, .limits = {}, .busy_timeout = {}},
                              runtime_->clock());
  TVK::Eraser eraser(virtual_runtime, &store, options_.places, TVK::Eraser::Rest::kTriedAgain);
  {
    TVK::Database reader;
    std::int64_t count = 0;
    ASSERT_EQ(reader.Open(data_ / TVK::kStoreFileName, SQLITE_OPEN_READWRITE), 0);
    ASSERT_EQ(reader.Execute("BEGIN"), 0);
    ASSERT_EQ(reader.ReadNumber("SELECT count(*) FROM record", count), 0);
    EXPECT_NE(eraser.Erase({}).problem, "");
    virtual_runtime.AdvanceBy(TVK::Eraser::kFirstPause);
    EXPECT_TRUE(std::filesystem::exists(data_ / "erasure.json"));
  }
  virtual_runtime.AdvanceBy(TVK::Eraser::kLongestPause);
  EXPECT_FALSE(std::filesystem::exists(data_ / "erasure.json"));
  EXPECT_EQ(FilesWith("\"SECRET\"}"), 0);
}

TEST_F(EraseCommandTest, ADamagedStoreGoesAsAWholeOrNotAtAll) {
  const std::filesystem::path store = data_ / TVK::kStoreFileName;
  std::string bytes = platform::ReadWholeFile(store, 1u << 20).value_or("");
  ASSERT_GT(bytes.size(), 8192u);
  bytes.replace(4096, 7, "DAMAGED");
  Write(store, bytes);
  options_.dataset = "MemoryEvent";
  options_.yes = true;
  EXPECT_EQ(Run(), 3) << Said();
  EXPECT_EQ(FilesWith("DAMAGED"), 1) << "it has been set aside, with the records of every dataset";
  options_.dataset.clear();
  options_.all = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_EQ(FilesWith("DAMAGED"), 0);

  bytes.replace(0, 7, "DAMAGED");
  Write(store, bytes);
  options_.all = false;
  options_.dataset = "CPUEvent";
  EXPECT_EQ(Run(), 3);
  EXPECT_NE(Said().find("the store is damaged"), std::string::npos) << Said();
  EXPECT_EQ(FilesWith("DAMAGED"), 1);
  options_.dataset.clear();
  options_.all = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_EQ(FilesWith("DAMAGED"), 0);

  std::filesystem::remove(store);
  Write(data_ / "records.db.corrupt-20260101T000000", "SECRET set aside");
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_EQ(FilesWith("SECRET"), 1) << "the policy";
  EXPECT_FALSE(std::filesystem::exists(store)) << "none is made in order to delete it";
}

TEST_F(EraseCommandTest, WithdrawsConsentOnlyWhereItIsSure) {
  const std::string policy = platform::ReadWholeFile(options_.policy_file, 1000).value_or("");
  options_.all = true;
  options_.yes = true;
  options_.stop = true;
  {
    const TVK::EventDataLogging store({.file = data_ / TVK::kStoreFileName, .limits = {}}, runtime_->clock());
    EXPECT_EQ(Run(), 3);
    EXPECT_EQ(Said().find("the scope is"), std::string::npos) << Said();
    EXPECT_NE(Said().find("nothing was deleted"), std::string::npos) << Said();
  }
  EXPECT_EQ(platform::ReadWholeFile(options_.policy_file, 1000), policy);
  Write(options_.policy_file, "FOREIGN = no policy");
  EXPECT_EQ(Run(), 2);
  EXPECT_EQ(FilesWith("FOREIGN"), 1);
  EXPECT_EQ(FilesWith("SECRET set aside"), 1);
}

TEST_F(EraseCommandTest, AServiceThatFollowsDeletesItself) {
  const TempFolder folder;
  platform::SimulatedMachine machine;
  SettableConfigAgent config;
  config.SetPolicy(MakePolicy(L"none", {}));
  const TVK::DatasetTable table = TVK::MakeComponentDatasets();
  ManagerLife life{*runtime_, machine, config, folder, table};
  life.Start();
  options_.places.data_folder = folder.path();
  options_.channel = folder.path() / "run";
  life.composition.ServeChannel(&life.manager.access(), options_.channel);
  options_.all = true;
  options_.yes = true;
  options_.stop = true;
  EXPECT_EQ(Run(), 0) << Said();
  EXPECT_NE(Said().find("the scope is \"none\""), std::string::npos) << Said();
  std::int64_t last = 0;
  EXPECT_EQ(life.composition.store().GetLastSequence(last), 0);
  EXPECT_NE(Said().find("deleted for good: " + std::to_string(last) + " records"), std::string::npos) << Said();
  EXPECT_EQ(life.composition.store().LogItemEvent({}), 0);
  EXPECT_EQ(Stored(folder.path()), 1) << "the machine is not described again for a record that does not name it";
  life.composition.ServeChannel(nullptr);
}

TEST_F(EraseCommandTest, TakesNoStoreThatSomebodyElseWrites) {
  const TVK::EventDataLogging store({.file = data_ / TVK::kStoreFileName, .limits = {}}, runtime_->clock());
  options_.all = true;
  options_.yes = true;
  EXPECT_EQ(Run(), 3);
  EXPECT_NE(Said().find("nothing was deleted"), std::string::npos) << Said();
  EXPECT_EQ(FilesWith("SECRET set aside"), 1);
}

}  // namespace
}  // namespace tvkctl

#include "apps/tvkctl/records_command.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "client/records/record_json.h"
#include "client/records/record_text.h"
#include "client/store/event_data_logging.h"
#include "client/store/sqlite_database.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

ItemEvent MakeItem(const std::wstring& dataset, const std::wstring& item) {
  ItemEvent event;
  event.set_dataset_id(dataset);
  event.set_dataset_name(dataset);
  event.set_item_name(item);
  return event;
}

class RecordsCommandTest : public testing::Test {
 protected:
  RecordsCommandTest() { options_.data_dir = folder_.path(); }
  /// What it shows; what it complains of is in errors_.
  std::string Output(int expected_code = 0) {
    std::ostringstream out;
    errors_.str("");
    EXPECT_EQ(RunRecords(options_, world_, out, errors_, nullptr), expected_code) << errors_.str();
    return out.str();
  }
  bool Complains(const char* text) const { return errors_.str().find(text) != std::string::npos; }
  /// A run that follows the store.
  std::thread Follow(std::ostringstream& out, platform::Event& stop) {
    options_.follow = true;
    options_.format = RecordFormat::kJson;
    std::thread follower = world_.StartThread(
        "follow", [this, &out, &stop] { EXPECT_EQ(RunRecords(options_, world_, out, errors_, &stop), 0); });
    world_.Settle();
    return follower;
  }
  TVK::StoreOptions store_options() const { return {.file = folder_.path() / TVK::kStoreFileName, .limits = {}}; }

  TempFolder folder_;
  platform::VirtualRuntime world_;
  RecordsOptions options_;
  std::ostringstream errors_;
};

TEST_F(RecordsCommandTest, ShowsWhatTheOptionsNarrow) {
  {
    TVK::EventDataLogging store(store_options(), world_.clock());
    EXPECT_EQ(store.LogDeviceContext({}), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"first")), 0);
    world_.AdvanceBy(std::chrono::minutes(10));
    EXPECT_EQ(store.LogItemEvent(MakeItem(L"MemoryEvent", L"second")), 0);
  }
  options_.format = RecordFormat::kJson;
  EXPECT_EQ(Output(), "{}\n" + TVK::ToJson(MakeItem(L"CPUEvent", L"first")) + "\n" +
                          TVK::ToJson(MakeItem(L"MemoryEvent", L"second")) + "\n");
  options_.since = "5m";
  EXPECT_EQ(Output(), TVK::ToJson(MakeItem(L"MemoryEvent", L"second")) + "\n");
  options_.until = "-5m";
  EXPECT_EQ(Output(), "");
  options_.since.clear();
  options_.reverse = true;
  EXPECT_EQ(Output(), TVK::ToJson(MakeItem(L"CPUEvent", L"first")) + "\n{}\n");
  options_.until.clear();
  options_.item = "FIRST";
  EXPECT_EQ(Output(), TVK::ToJson(MakeItem(L"CPUEvent", L"first")) + "\n");
  options_.item.clear();
  options_.reverse = false;
  options_.dataset = "cpuevent";
  options_.format = RecordFormat::kCsv;
  EXPECT_EQ(Output(), "time,kind,dataset,item,context,data\r\n,item,CPUEvent,first,,{}\r\n");
  options_.format = RecordFormat::kTable;
  EXPECT_NE(Output().find("CPUEvent            first\n"), std::string::npos);
}

TEST_F(RecordsCommandTest, ARowThatIsNoObjectSpoilsNothingElse) {
  {
    TVK::EventDataLogging store(store_options(), world_.clock());
    for (const wchar_t* item : {L"first", L"broken", L"list", L"last"})
      EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", item)), 0);
  }
  {
    TVK::Database database;
    ASSERT_EQ(database.Open(store_options().file, SQLITE_OPEN_READWRITE), 0);
    ASSERT_EQ(database.Execute("UPDATE record SET json = '{\"item_name\":\"bro' WHERE sequence = 2;"
                               "UPDATE record SET json = '[]' WHERE sequence = 3"),
              0);
  }
  options_.format = RecordFormat::kJson;
  const std::string both =
      TVK::ToJson(MakeItem(L"CPUEvent", L"first")) + "\n" + TVK::ToJson(MakeItem(L"CPUEvent", L"last")) + "\n";
  EXPECT_EQ(Output(), both);
  EXPECT_TRUE(Complains("no JSON object: 2")) << errors_.str();
  options_.dataset = "CPUEvent";
  EXPECT_EQ(Output(), both);
}

TEST_F(RecordsCommandTest, ADamagedStoreShowsWhatCanBeReadAndIsFoundByTheWriter) {
  {
    TVK::EventDataLogging store(store_options(), world_.clock());
    for (int i = 0; i < 300; ++i)
      ASSERT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"item" + std::to_wstring(i) + std::wstring(100, L'.'))), 0);
  }
  const std::uintmax_t size = std::filesystem::file_size(store_options().file);
  const auto spoil = [&](std::uintmax_t from, std::uintmax_t to) {
    std::fstream file(store_options().file, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(from));
    file << std::string(to - from, '\xA5');
  };
  spoil(size / 4, size / 2);
  const std::string shown = Output(3);
  EXPECT_NE(shown.find("item299."), std::string::npos);
  EXPECT_EQ(shown.find("item0."), std::string::npos);
  options_.reverse = true;
  EXPECT_NE(Output(3).find("item299."), std::string::npos);
  options_.reverse = false;
  EXPECT_TRUE(Complains("malformed")) << errors_.str();

  spoil(100, 200);  // the list of tables
  Output(3);
  EXPECT_TRUE(Complains("cannot read the store"));

  const TVK::EventDataLogging store(store_options(), world_.clock());
  EXPECT_EQ(Output(), TVK::RecordTableHeader({.times = {TVK::RecordZone::kLocal}}))
      << "the store went on with the damaged file";
}

TEST_F(RecordsCommandTest, FollowsFromTheLimitUntilItIsStopped) {
  TVK::EventDataLogging store(store_options(), world_.clock());
  EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"old")), 0);
  std::string last = TVK::ToJson(MakeItem(L"CPUEvent", L"old")) + "\n";
  for (const unsigned limit : {0u, 1u}) {
    options_.limit = limit;
    const auto stop = world_.MakeEvent(platform::EventReset::kManual);
    std::ostringstream out;
    std::thread follower = Follow(out, *stop);
    const std::string before = limit == 0 ? "" : last;
    EXPECT_EQ(out.str(), before);
    EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"new")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"newer")), 0);
    world_.AdvanceBy(std::chrono::milliseconds(250));
    last = TVK::ToJson(MakeItem(L"CPUEvent", L"newer")) + "\n";
    EXPECT_EQ(out.str(), before + TVK::ToJson(MakeItem(L"CPUEvent", L"new")) + "\n" + last);
    stop->Set();
    world_.Join(follower);
  }
}

TEST_F(RecordsCommandTest, FollowsAStoreThatIsNotThereYet) {
  const auto stop = world_.MakeEvent(platform::EventReset::kManual);
  std::ostringstream out;
  std::thread follower = Follow(out, *stop);
  world_.AdvanceBy(std::chrono::seconds(1));
  TVK::EventDataLogging store(store_options(), world_.clock());
  EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"new")), 0);
  world_.AdvanceBy(std::chrono::milliseconds(500));
  EXPECT_EQ(out.str(), TVK::ToJson(MakeItem(L"CPUEvent", L"new")) + "\n") << errors_.str();
  EXPECT_TRUE(Complains("waiting for it"));
  stop->Set();
  world_.Join(follower);
}

TEST_F(RecordsCommandTest, FollowsIntoAStoreThatIsBegunAnew) {
  TVK::EventDataLogging store(store_options(), world_.clock());
  EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"old")), 0);
  options_.limit = 0;
  const auto stop = world_.MakeEvent(platform::EventReset::kManual);
  std::ostringstream out;
  std::thread follower = Follow(out, *stop);
  std::error_code refused;  // where a file that is read keeps its name, and the store goes on with it
  std::filesystem::rename(store_options().file, folder_.path() / "away", refused);
  world_.AdvanceBy(std::chrono::milliseconds(250));
  EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"new")), 0);
  world_.AdvanceBy(std::chrono::milliseconds(250));
  EXPECT_EQ(out.str(), TVK::ToJson(MakeItem(L"CPUEvent", L"new")) + "\n") << errors_.str();
  stop->Set();
  world_.Join(follower);
}

TEST_F(RecordsCommandTest, SaysWhyItShowsNothing) {
  options_.dataset = "cpu";
  options_.datasets = {"MemoryEvent"};
  Output(2);
  EXPECT_TRUE(Complains("no store at")) << errors_.str();
  TVK::EventDataLogging store(store_options(), world_.clock());
  options_.dataset.clear();
  EXPECT_EQ(Output(), TVK::RecordTableHeader({.times = {TVK::RecordZone::kLocal}}));
  EXPECT_TRUE(Complains("the store holds no record yet")) << errors_.str();
  EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"first")), 0);
  world_.AdvanceBy(std::chrono::minutes(10));
  EXPECT_EQ(store.LogItemEvent(MakeItem(L"CPUEvent", L"second")), 0);
  options_.dataset = "cpu";
  Output(1);
  EXPECT_TRUE(Complains("no dataset cpu; names: CPUEvent, MemoryEvent\n")) << errors_.str();
  options_.dataset = "memoryevent";
  Output();
  EXPECT_TRUE(Complains("they are from 2026-01-01T00:00:00+0000 to 2026-01-01T00:10:00+0000")) << errors_.str();
  options_.item = "third";
  Output();
  EXPECT_TRUE(Complains("no record is of an item third\n")) << errors_.str();
  options_.dataset = "cpuevent";
  Output();
  EXPECT_TRUE(Complains("no record is of an item third; items: second\n")) << errors_.str();
  options_.until = "elevenses";
  Output(1);
  EXPECT_TRUE(Complains("\"elevenses\" is no time")) << errors_.str();
}

}  // namespace
}  // namespace tvkctl

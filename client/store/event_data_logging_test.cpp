#include "client/store/event_data_logging.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <thread>

#include "client/store/erasure.h"
#include "client/store/sqlite_database.h"
#include "client/store/store_test_records.h"
#include "client/text/string.h"

namespace TVK {
namespace {

using EventDataLoggingTest = StoreTest;

TEST_F(EventDataLoggingTest, LastRecordsAreFoundAfterAReopen) {
  {
    EventDataLogging store(options(), clock());
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D2")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M1")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"one")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"two")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I1", L"three")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I2", L"four")), 0);
  }
  const EventDataLogging store(options(), clock());
  ItemEvent item;
  EXPECT_EQ(store.GetLastItemEventWithItemId(kCpu, L"I1", item), 0);
  EXPECT_EQ(item, MakeItem(kCpu, L"I1", L"two"));
  EXPECT_EQ(store.GetLastItemEventOfAnyDataset(L"I1", item), 0);
  EXPECT_EQ(ValueOf(item), L"three");
  DatasetContext dataset;
  EXPECT_EQ(store.GetLastDatasetContext(kCpu, dataset), 0);
  EXPECT_EQ(dataset, MakeDatasetContext(kCpu, L"C1"));
  DeviceContext device;
  EXPECT_EQ(store.GetLastDeviceContext(device), 0);
  EXPECT_EQ(device, MakeDeviceContext(L"D2"));
  EXPECT_EQ(store.GetDeviceContext(L"D1", device), 0);
  EXPECT_EQ(device, MakeDeviceContext(L"D1"));

  EXPECT_EQ(store.GetLastItemEventWithItemId(kMemory, L"I2", item), kStoreNotFound);
  EXPECT_EQ(store.GetLastItemEventOfAnyDataset(L"I9", item), kStoreNotFound);
  EXPECT_EQ(store.GetDeviceContext(L"D9", device), kStoreNotFound);
  EXPECT_EQ(ValueOf(item), L"three") << "a question without an answer changed the output";

  std::vector<ItemEvent> events;
  EXPECT_EQ(store.ReadItemEvents(kCpu, 0, 4, events), 0);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(ValueOf(events[0]) + ValueOf(events[1]), L"onetwo");
  EXPECT_EQ(store.ReadItemEvents(kCpu, 4, 5, events), 0);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(ValueOf(events[0]), L"four");
}

TEST_F(EventDataLoggingTest, QueriesOfAReaderNarrowAndKeepTheOrder) {
  const std::int64_t start = clock().NowSeconds();
  {
    EventDataLogging store(options(), clock());
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"one")), 0);
    world_.AdvanceBy(std::chrono::seconds(10));
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I1", L"two")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"three")), 0);
  }
  const auto sequences = [&](const RecordQuery& query) {
    std::vector<std::int64_t> found;
    for (const StoredRecord& record : Stored(query))
      found.push_back(record.sequence);
    return found;
  };
  using Numbers = std::vector<std::int64_t>;
  EXPECT_EQ(sequences({}), (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(sequences({.kind = RecordKind::kDataset}), Numbers{2});
  EXPECT_EQ(sequences({.dataset_name = L"cpuEVENT"}), (Numbers{2, 3, 5}));
  EXPECT_EQ(sequences({.since_seconds = start + 10}), (Numbers{4, 5}));
  EXPECT_EQ(sequences({.since_seconds = start + 11}), Numbers{});
  EXPECT_EQ(sequences({.after_sequence = 3}), (Numbers{4, 5}));
  EXPECT_EQ(sequences({.limit = 2}), (Numbers{4, 5}));
  EXPECT_EQ(sequences({.kind = RecordKind::kItem, .dataset_name = L"CPUEvent", .limit = 1}), Numbers{5});
  EXPECT_EQ(sequences({.limit = ~0ull}).size(), 5u);
  EXPECT_EQ(sequences({.dataset_name = L"CPUEvent", .until_seconds = start + 9}), (Numbers{2, 3}));
  EXPECT_EQ(sequences({.after_sequence = 1, .last_sequence = 4, .limit = 2, .newest_first = true}), (Numbers{4, 3}));
  for (const char* suffix : {"-wal", "-shm"})
    EXPECT_FALSE(std::filesystem::exists(file().string() + suffix)) << suffix << " left by a reader";
}

TEST_F(EventDataLoggingTest, ManyWritersLoseNothingAndTheListenerHearsTheOrderOfTheStore) {
  constexpr int kWriters = 8;
  constexpr int kEach = 100;
  EventDataLogging store(options(), clock());
  std::vector<std::string> heard;  // needs no lock: the listener is called by one thread at a time
  store.SetRecordListener([&](RecordKind, const std::string& json) { heard.push_back(json); });
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&, writer] {
      const std::wstring context_id = L"C" + std::to_wstring(writer);
      EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, context_id), context_id), 0);
      ItemEvent last;
      DatasetContext context;
      for (int i = 0; i < kEach; ++i) {
        const std::wstring item_id = L"I" + std::to_wstring(writer);
        EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, item_id, std::to_wstring(i), context_id)), 0);
        EXPECT_EQ(store.GetLastItemEventWithItemId(kCpu, item_id, last), 0);
        EXPECT_EQ(ValueOf(last), std::to_wstring(i)) << "a record that was reported as written is not there";
        EXPECT_EQ(store.GetLastDatasetContextOfDevice(kCpu, context_id, context), 0);
        EXPECT_EQ(context.dataset_context_id(), context_id);
      }
    });
  }
  for (std::thread& writer : writers)
    writer.join();
  store.SetRecordListener(nullptr);

  EXPECT_EQ(StoredTexts(), heard);
  EXPECT_EQ(heard.size(), std::size_t{kWriters * (kEach + 1)});
  EXPECT_EQ(Stored().back().sequence, kWriters * (kEach + 1));
  std::vector<ItemEvent> last;
  EXPECT_EQ(store.ReadItemEvents(kCpu, kWriters * kEach, kWriters * kEach + 1, last), 0);
  EXPECT_EQ(last.size(), 1u) << "an item's id was used twice";
}

TEST_F(EventDataLoggingTest, ALockedDatabaseCostsTheRecordAndNothingElse) {
  EventDataLogging store(options(), clock());
  {
    Database other;
    ASSERT_EQ(other.Open(file(), SQLITE_OPEN_READWRITE), 0);
    ASSERT_EQ(other.Execute("BEGIN IMMEDIATE"), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"lost")), SQLITE_BUSY);
    EXPECT_TRUE(log_.Has(L"a record of dataset CPUEvent is lost, error 5"));
    ItemEvent item;
    EXPECT_EQ(store.GetLastItemEventWithItemId(kCpu, L"I1", item), kStoreNotFound) << "readers do not wait";
  }
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"kept")), 0);
}

TEST_F(EventDataLoggingTest, ARecordThatNobodyCouldReadIsRefused) {
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", std::wstring(kLongestRecordJson, L'x'))), SQLITE_TOOBIG);
  EXPECT_TRUE(log_.Has(L"error 18"));
}

TEST_F(EventDataLoggingTest, ForeignAndNewerFilesAreLeftAlone) {
  for (const char* content :
       {"CREATE TABLE other(x); INSERT INTO other VALUES(1)",
        "PRAGMA application_id = 1414941509; PRAGMA user_version = 9999; CREATE TABLE record(x)",
        "PRAGMA journal_mode = WAL; CREATE TABLE other(x); PRAGMA wal_checkpoint; INSERT INTO other VALUES(1)", ""}) {
    SCOPED_TRACE(content);
    EmptyFolder();
    Database theirs;  // open meanwhile, as the other program has it
    if (*content == 0) {
      std::ofstream(file()) << "no database, but a list of records: {\"device_context_id\":\"D1\"}";
    } else {
      ASSERT_EQ(theirs.Open(file(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), 0);
      ASSERT_EQ(theirs.Execute(content), 0);
    }
    using std::filesystem::perms;
    std::filesystem::permissions(file(), perms::owner_read | perms::owner_write | perms::others_read);
    const auto read_all = [&] {
      std::string all;
      std::set<std::filesystem::path> names;
      for (const auto& entry : std::filesystem::directory_iterator(folder_))
        if (entry.path().extension() != ".lock") names.insert(entry.path());
      for (const std::filesystem::path& name : names) {
        std::ifstream in(name, std::ios::binary);
        all += name.filename().string() + std::to_string(static_cast<int>(std::filesystem::status(name).permissions()));
        // What connections share is theirs to write in.
        if (!name.string().ends_with("-shm")) all.append(std::istreambuf_iterator<char>(in), {});
      }
      return all;
    };
    const std::string before = read_all();
    {
      EventDataLogging store(options(), clock());
      EXPECT_FALSE(store.is_open());
      EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"one")), kStoreClosed);
      DeviceContext device;
      EXPECT_EQ(store.GetLastDeviceContext(device), kStoreClosed);
      std::string problem;
      EXPECT_EQ(RecordReader::Open(file(), problem), nullptr);
    }
    EXPECT_EQ(read_all(), before);
    EXPECT_EQ(FilesSetAside(), 0u);
    EXPECT_TRUE(log_.Has(L"cannot be used"));
    log_.Clear();
  }
}

TEST_F(EventDataLoggingTest, OldItemsGoAndWhatSchedulesNeedStays) {
  StoreOptions limited = options();
  limited.limits.max_age_seconds = 3600;
  {
    EventDataLogging store(limited, clock());
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I2", L"rhythm")), 0);
    for (int i = 1; i <= 50; ++i)
      EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", std::to_wstring(i))), 0);
  }
  world_.AdvanceBy(std::chrono::hours(2));
  EventDataLogging store(limited, clock());
  std::vector<ItemEvent> events;
  EXPECT_EQ(store.ReadItemEvents(kCpu, 0, 1000, events), 0);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(ValueOf(events[0]), L"50");
  ItemEvent item;
  EXPECT_EQ(store.GetLastItemEventWithItemId(kMemory, L"I2", item), 0);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"next")), 0);
  EXPECT_EQ(store.ReadItemEvents(kCpu, 52, 53, events), 0);
  EXPECT_EQ(events.size(), 1u) << "record ids go on counting";
  world_.AdvanceBy(std::chrono::hours(2));
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"last")), 0);
  EXPECT_EQ(store.ReadItemEvents(kCpu, 0, 1000, events), 0);
  EXPECT_EQ(events.size(), 1u) << "a store that stays open is looked through, too";
}

TEST_F(EventDataLoggingTest, WhatWentForItsAgeIsToldFromWhatWentForOtherReasons) {
  using Noted = std::pair<std::int64_t, std::int64_t>;
  const auto noted = [&] {
    std::string problem;
    const auto reader = RecordReader::Open(file(), problem);
    if (reader == nullptr) ADD_FAILURE() << problem;
    const RemovedForAge removed = reader == nullptr ? RemovedForAge() : reader->LastRemovedForAge();
    return Noted(removed.last_sequence, removed.before_seconds);
  };
  const auto write = [](EventDataLogging& store, int count) {
    for (; count > 0; --count)
      EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"x")), 0);
  };
  StoreOptions limited = options();
  limited.limits.max_age_seconds = 3600;
  std::uint64_t count = 0;
  std::int64_t before = 0;
  {
    EventDataLogging store(limited, clock());
    write(store, 10);
    EXPECT_EQ(store.Erase({.before_seconds = clock().NowSeconds() + 1}, count), 0);
    EXPECT_EQ(count, 10u);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I1", L"rare")), 0);
    write(store, 10);
    EXPECT_EQ(noted(), Noted(0, 0)) << "an erasure, and nothing too old";
    world_.AdvanceBy(std::chrono::hours(2));
    write(store, 2);
    before = clock().NowSeconds() - limited.limits.max_age_seconds;
    EXPECT_EQ(noted(), Noted(21, before));
    world_.AdvanceBy(std::chrono::minutes(10));
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I1", L"rare")), 0);
    before += 600;
    EXPECT_EQ(noted(), Noted(21, before)) << "an older one that stayed as the last of its kind";
  }
  ExecuteOutside("UPDATE record SET written = 0 WHERE sequence = 22");
  const platform::VirtualRuntime earlier;
  EventDataLogging store(limited, earlier.clock());
  write(store, 1);
  EXPECT_EQ(noted(), Noted(22, before)) << "a clock that was set back";
  EXPECT_EQ(store.Erase({.dataset_id = String::UTF16ToUTF8(kCpu)}, count), 0);
  EXPECT_EQ(noted(), Noted(22, before));
  EXPECT_EQ(store.Erase({}, count), 0);
  EXPECT_EQ(noted(), Noted(0, 0)) << "nothing is left that it could be about";
}

TEST_F(EventDataLoggingTest, ARemovalThatCannotBeNotedRemovesNothingAndHoldsUpNoWriter) {
  StoreOptions limited = options();
  limited.limits.max_age_seconds = 3600;
  const auto write = [](EventDataLogging& store, int count) {
    for (; count > 0; --count)
      EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"x")), 0);
  };
  {
    EventDataLogging store(limited, clock());
    write(store, 5);
  }
  ExecuteOutside(
      "CREATE TRIGGER refuse BEFORE INSERT ON state WHEN NEW.key = 'aged'"
      " BEGIN SELECT RAISE(ABORT, 'refused'); END");
  world_.AdvanceBy(std::chrono::hours(2));
  EventDataLogging store(limited, clock());
  write(store, 3);
  EXPECT_EQ(Stored().size(), 8u);
  ExecuteOutside("DROP TRIGGER refuse");
  write(store, 1 + 256);  // the look that failed is taken up with one at the size
  EXPECT_EQ(Stored().size(), 260u);
}

TEST_F(EventDataLoggingTest, OldItemsGoWhateverDateStandsAheadOfThem) {
  constexpr std::int64_t kDay = 24 * 3600;
  constexpr int kAhead = 600;  // more than go in one step
  struct {
    std::int64_t ahead_age;
    std::int64_t behind_age;
    std::size_t left;
  } const rows[] = {
      {-kDay / 2, 100 * kDay, kAhead + 2},  // the newest when the store was opened, and the last one
      {-3650 * kDay, 100 * kDay, 1},
      {-3650 * kDay, 80 * kDay, kAhead + 51},  // it may be the present clock that is wrong
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.left);
    std::filesystem::remove(file());
    { EXPECT_EQ(EventDataLogging(options(), clock()).LogItemEvent(MakeItem(kCpu, L"I1", L"first")), 0); }
    const auto append = [&](std::int64_t count, std::int64_t age) {
      ExecuteOutside(
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(count) +
          ") INSERT INTO record(sequence, series, number, written, json) SELECT i + m, 1, i + m, " +
          std::to_string(clock().NowSeconds() - age) + ", '{}' FROM n, (SELECT max(sequence) AS m FROM record)");
    };
    append(kAhead, row.ahead_age);
    append(50, row.behind_age);
    ExecuteOutside("DELETE FROM record WHERE sequence = 1");
    EventDataLogging store(options(), clock());
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"last")), 0);
    EXPECT_EQ(Stored().size(), row.left);
  }
}

TEST_F(EventDataLoggingTest, SizeStaysBoundedAndContextsLiveAsLongAsTheirEvents) {
  StoreOptions limited = options();
  limited.limits.max_bytes = 256 << 10;
  EventDataLogging store(limited, clock());
  // One context of each kind for every four events; the first ones are referred to by an event that stays.
  for (int i = 0; i < 1200; ++i) {
    const std::wstring context = std::to_wstring(i / 4);
    if (i % 4 == 0) {
      ASSERT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D" + context)), 0);
      ASSERT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C" + context, L"D" + context)), 0);
    }
    if (i == 0) {
      EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I2", L"rhythm", L"C0", L"D0")), 0);
    }
    ASSERT_EQ(store.LogItemEvent(
                  MakeItem(kCpu, L"I1", std::to_wstring(i) + std::wstring(200, L'.'), L"C" + context, L"D" + context)),
              0);
  }
  EXPECT_LT(std::filesystem::file_size(file()), 640u << 10) << "the space of removed records is used again";

  EXPECT_EQ(CountDangling(), 0);
  const std::size_t items = Stored({.kind = RecordKind::kItem}).size();
  EXPECT_GT(items, 100u);
  EXPECT_LT(items, 900u);
  EXPECT_LT(Stored().size() - items, 550u) << "contexts that nothing refers to go, too";
}

TEST_F(EventDataLoggingTest, AListenerThatThrowsHoldsUpNoWriterAndHearsTheNextRecord) {
  EventDataLogging store(options(), clock());
  std::vector<std::string> heard;
  store.SetRecordListener([&](RecordKind, const std::string& json) {
    heard.push_back(json);
    throw 7;  // NOLINT(hicpp-exception-baseclass)
  });
  EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
  EXPECT_EQ(store.LogItemEvents({{MakeItem(kCpu, L"I1", L"one", {}, L"D1"), {}}, {MakeItem(kCpu, L"I1", L"two"), {}}}),
            0);
  EXPECT_EQ(heard.size(), 3u);
  EXPECT_EQ(StoredTexts(), heard);
}

}  // namespace
}  // namespace TVK

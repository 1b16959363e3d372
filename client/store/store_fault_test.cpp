// The store on a disk that fails: a layer below SQLite refuses the n-th read, write or flush, for n = 1, 2, 3 and so on
// until a whole session gets through. Whatever happens, what was reported as written is there afterwards, in its place.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <set>

#include "client/store/failing_disk.h"
#include "client/store/sqlite_database.h"
#include "client/store/store_test_records.h"
#include "platform/files.h"

namespace TVK {
namespace {

class StoreFaultTest : public StoreTest {
 protected:
  // Writes through a store from its making to its end; the values of what was reported as written.
  std::vector<std::wstring> Session(int first) {
    std::vector<std::wstring> written;
    EventDataLogging store(options(), clock());
    for (int i = first; i < first + 12; ++i) {
      const std::wstring value = std::to_wstring(i);
      if (store.LogItemEvent(MakeItem(kCpu, L"I" + std::to_wstring(i % 5), value)) == 0) written.push_back(value);
    }
    return written;
  }

  void ExpectSoundWith(const std::vector<std::wstring>& written) {
    Database database;
    ASSERT_EQ(database.Open(file(), SQLITE_OPEN_READWRITE), 0);
    std::string finding;
    EXPECT_EQ(database.ReadText("PRAGMA integrity_check", finding), 0);
    EXPECT_EQ(finding, "ok");
    EventDataLogging store(options(), clock());
    std::vector<ItemEvent> events;
    ASSERT_EQ(store.ReadItemEvents(kCpu, 0, 1000, events), 0);
    std::set<std::wstring> stored;
    for (const ItemEvent& event : events)
      stored.insert(ValueOf(event));
    for (const std::wstring& value : written)
      EXPECT_TRUE(stored.contains(value)) << "lost record";
  }
};

TEST_F(StoreFaultTest, NothingReportedAsWrittenIsLostOrMovedWhateverFails) {
  for (const bool for_good : {false, true}) {
    // SQLITE_IOERR_CORRUPTFS is what a read gives that the system answers with EIO; SQLite then speaks of damage.
    for (const int code : {SQLITE_FULL, SQLITE_IOERR_WRITE, SQLITE_IOERR_READ, SQLITE_IOERR_CORRUPTFS}) {
      const bool reads = code == SQLITE_IOERR_READ || code == SQLITE_IOERR_CORRUPTFS;
      if (code == SQLITE_IOERR_READ && for_good) continue;  // as the other one
      int n = 1;
      for (bool failed = true; failed; ++n) {
        SCOPED_TRACE("operation " + std::to_string(n) + " fails with " + std::to_string(code));
        EmptyFolder();
        FailingDisk disk;
        std::vector<std::wstring> written;
        if (reads) written = Session(100);  // there is something to be read
        log_.Clear();
        disk.FailAt(n, code, for_good);
        std::vector<std::wstring> again = Session(0);
        EXPECT_GE(log_.Count(L"is lost, error"), 12 - again.size()) << "a silent loss";
        if (reads && !for_good) {
          EXPECT_EQ(again.size(), 12u) << "one read that fails is tried again";
        }
        failed = FailingDisk::failed();
        disk.FailAt(0, 0, false);
        written.insert(written.end(), again.begin(), again.end());
        ExpectSoundWith(written);
        EXPECT_EQ(FilesSetAside(), 0u);
        if (HasFailure()) return;
      }
      EXPECT_GT(n, reads ? 10 : 20) << "the layer below saw few operations";
    }
  }
}

TEST_F(StoreFaultTest, AFullDiskLosesOnlyWhatComesWhileItIsFull) {
  FailingDisk disk;
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"before")), 0);
  disk.FailAt(1, SQLITE_FULL, true);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"lost")), SQLITE_FULL);
  EXPECT_TRUE(log_.Has(L"a record of dataset CPUEvent is lost, error 13"));
  ItemEvent item;
  EXPECT_EQ(store.GetLastItemEventWithItemId(kCpu, L"I1", item), 0);
  EXPECT_EQ(ValueOf(item), L"before");
  disk.FailAt(0, 0, false);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
  EXPECT_TRUE(log_.Has(L"records are written again, lost before: 1"));
}

TEST_F(StoreFaultTest, WhatCouldNotBeFlushedIsNotThereLater) {
  FailingDisk disk;
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"before")), 0);
  // The log has them, with their end marks: whoever read it from its begin would find them.
  disk.FailAt(1, SQLITE_IOERR_FSYNC, true);
  for (const wchar_t* const refused : {L"1", L"2", L"3", L"4"})
    EXPECT_NE(store.LogItemEvent(MakeItem(kCpu, L"I1", refused)), 0);
  disk.FailAt(0, 0, false);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
  std::vector<ItemEvent> events;
  ASSERT_EQ(store.ReadItemEvents(kCpu, 0, 1000, events), 0);
  std::wstring values;
  for (const ItemEvent& event : events)
    values += ValueOf(event) + L' ';
  EXPECT_EQ(values, L"before after ");
}

TEST_F(StoreFaultTest, AFileThatCannotBeWrittenIsNoOpenStore) {
  { const EventDataLogging store(options(), clock()); }
  // Somebody reads, so that the files are there which a connection could not make.
  Database reader;
  ASSERT_EQ(reader.Open(file(), SQLITE_OPEN_READWRITE), 0);
  ASSERT_EQ(reader.Execute("SELECT count(*) FROM record"), 0);
  FailingDisk disk;
  disk.set_read_only(true);
  EventDataLogging store(options(), clock());
  EXPECT_FALSE(store.is_open());
  EXPECT_EQ(store.opening_problem(), "the file cannot be written");
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"lost")), kStoreClosed);
  EXPECT_EQ(log_.Count(L"the file cannot be written"), 1u) << "tried again with each record, told once";
  disk.set_read_only(false);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"kept")), 0);
  EXPECT_TRUE(store.is_open());
}

TEST_F(StoreFaultTest, ItemsThatGoTogetherAreWrittenTogetherOrNotAtAll) {
  FailingDisk disk;
  EventDataLogging store(options(), clock());
  const auto written = [&] {
    std::vector<ItemEvent> events;
    EXPECT_EQ(store.ReadItemEvents(kCpu, 0, 1000, events), 0);
    std::wstring values;
    for (const ItemEvent& event : events)
      values += ValueOf(event);
    std::wstring state;
    store.GetState(kCpu, L"place", state);
    return values + L":" + state;
  };
  const auto write = [&](const std::wstring& last_context, const std::wstring& last) {
    return store.LogItemEvents({{MakeItem(kCpu, L"I1", L"a"), {L"place", L"1"}},
                                {MakeItem(kCpu, L"I1", L"b"), {L"place", L"2"}},
                                {MakeItem(kCpu, L"I1", last, last_context), {L"place", L"3"}}});
  };
  EXPECT_EQ(store.LogItemEvents({}), 0);
  EXPECT_EQ(write(L"nobody", L"c"), kStoreUnknownContext);
  EXPECT_EQ(write({}, std::wstring(std::size_t{1} << 20, L'c')), SQLITE_TOOBIG);
  EXPECT_EQ(written(), L":");
  int failed = 0;
  for (int n = 1; failed == n - 1; ++n) {
    disk.FailAt(n, SQLITE_FULL, true);
    if (write({}, L"c") != 0) ++failed;
    disk.FailAt(0, 0, false);
    EXPECT_EQ(written(), failed == n ? L":" : L"abc:3") << n;
  }
  EXPECT_GT(failed, 1);
  EXPECT_TRUE(log_.Has(L"records are written again, lost before: " + std::to_wstring(3 * failed)));
}

TEST_F(StoreFaultTest, ASecondWriterIsRefusedUntilTheFirstHasEnded) {
  {
    EventDataLogging first(options(), clock());
    const EventDataLogging second(options(), clock());
    EXPECT_FALSE(second.is_open());
    EXPECT_TRUE(log_.Has(L"another process writes to it"));
    EXPECT_EQ(first.LogItemEvent(MakeItem(kCpu, L"I1", L"kept")), 0);
  }
  EXPECT_TRUE(EventDataLogging(options(), clock()).is_open());
}

TEST_F(StoreFaultTest, AContextThatCouldNotBeWrittenGoesAheadOfTheNextRecord) {
  FailingDisk disk;
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1", L"D1")), 0);
  disk.FailAt(1, SQLITE_FULL, true);
  // What a change of the region asks for; superseded ones that nobody could refer to go.
  for (const wchar_t* id : {L"D2", L"D3", L"D4"})
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(id)), SQLITE_FULL);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C4", L"D4")), SQLITE_FULL);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M1", L"D4"), L"first"), SQLITE_FULL);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M2", L"D4"), L"second"), SQLITE_FULL);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M3", L"nowhere"), L"third"), SQLITE_FULL);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"lost", L"C4", L"D4")), SQLITE_FULL);
  DeviceContext device;
  EXPECT_EQ(store.GetLastDeviceContext(device), 0);
  EXPECT_EQ(device.device_context_id(), L"D4");
  EXPECT_EQ(store.GetDeviceContext(L"D4", device), 0);
  DatasetContext dataset;
  EXPECT_EQ(store.GetLastDatasetContext(kCpu, dataset), 0);
  EXPECT_EQ(dataset.dataset_context_id(), L"C4");
  EXPECT_EQ(store.GetLastDatasetContext(kMemory, dataset), 0);
  EXPECT_EQ(dataset.dataset_context_id(), L"M3");
  EXPECT_EQ(store.GetLastDatasetContextOfDevice(kMemory, L"first", dataset), 0);
  EXPECT_EQ(dataset.dataset_context_id(), L"M1");
  std::vector<DatasetContext> earlier;
  EXPECT_EQ(store.GetEarlierDatasetContexts(kCpu, earlier), 0);
  EXPECT_EQ(IdsOf(earlier), L"C4 C1 ");

  disk.FailAt(0, 0, false);
  for (int i = 0; i < 12; ++i)
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", std::to_wstring(i), L"C4", L"D4")), 0);
  EXPECT_TRUE(log_.Has(L"records are written again, lost before: 1"));
  EXPECT_EQ(CountDangling(), 0);
  EXPECT_EQ(store.GetLastDatasetContextOfDevice(kMemory, L"third", dataset), kStoreNotFound)
      << "it named an unknown one";
  std::vector<std::string> texts = StoredTexts();
  ASSERT_EQ(texts.size(), 2u + 5u + 12u);
  texts.resize(8);
  EXPECT_EQ(texts,
            (std::vector{
                ToJson(MakeDeviceContext(L"D1")), ToJson(MakeDatasetContext(kCpu, L"C1", L"D1")),
                ToJson(MakeDeviceContext(L"D3")), ToJson(MakeDeviceContext(L"D4")),
                ToJson(MakeDatasetContext(kCpu, L"C4", L"D4")), ToJson(MakeDatasetContext(kMemory, L"M1", L"D4")),
                ToJson(MakeDatasetContext(kMemory, L"M2", L"D4")), ToJson(MakeItem(kCpu, L"I1", L"0", L"C4", L"D4"))}));
}

TEST_F(StoreFaultTest, AStoreThatIsBegunAnewHasTheContextsInForce) {
  {
    EventDataLogging store(options(), clock());
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D0")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1", L"D0")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C2", L"D0"), L"second"), 0);
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
  }
  std::vector<std::string> remarks;
  StoreOptions with_remarks = options();
  with_remarks.remarks = [&](const std::string& line) { remarks.push_back(line); };
  EventDataLogging store(with_remarks, clock());
  DeviceContext device;
  EXPECT_EQ(store.GetLastDeviceContext(device), 0);
  DatasetContext dataset;
  EXPECT_EQ(store.GetLastDatasetContextOfDevice(kCpu, L"", dataset), 0);
  EXPECT_EQ(store.GetLastDatasetContextOfDevice(kCpu, L"second", dataset), 0);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M1", L"D1")), 0);
  std::vector<std::string> heard;
  store.SetRecordListener([&](RecordKind, const std::string& json) { heard.push_back(json); });
  SpoilFile();
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after", L"C2", L"D1")), 0);
  EXPECT_TRUE(log_.Has(L"the store was damaged"));
  EXPECT_EQ(FilesSetAside(), 1u);
  ASSERT_EQ(remarks.size(), 1u);
  EXPECT_NE(remarks[0].find("the store was damaged"), std::string::npos);
  const std::vector in_force{ToJson(MakeDeviceContext(L"D0")),
                             ToJson(MakeDeviceContext(L"D1")),
                             ToJson(MakeDatasetContext(kCpu, L"C1", L"D0")),
                             ToJson(MakeDatasetContext(kCpu, L"C2", L"D0")),
                             ToJson(MakeDatasetContext(kMemory, L"M1", L"D1")),
                             ToJson(MakeItem(kCpu, L"I1", L"after", L"C2", L"D1"))};
  EXPECT_EQ(heard, in_force);
  EXPECT_EQ(StoredTexts(), in_force);
  EXPECT_EQ(CountDangling(), 0);
  EXPECT_EQ(store.GetLastDatasetContextOfDevice(kCpu, L"second", dataset), 0);
  EXPECT_EQ(dataset.dataset_context_id(), L"C2");
}

TEST_F(StoreFaultTest, ADamagedHeaderIsJudgedAndSaysSo) {
  struct Row {
    const char* what;
    std::function<void()> damage;
    const char* told;
    bool set_aside;
  };
  const auto overwrite = [&](std::streamoff at, const std::string& bytes) {
    std::fstream(file(), std::ios::binary | std::ios::in | std::ios::out).seekp(at) << bytes;
  };
  for (const Row& row : {
           Row{"version 0", [&] { ExecuteOutside("PRAGMA user_version = 0"); }, "it says version 0", true},
           Row{"below 0", [&] { ExecuteOutside("PRAGMA user_version = -5"); }, "it says version -5", true},
           Row{"absurd", [&] { ExecuteOutside("PRAGMA user_version = 10000"); }, "version 10000", true},
           Row{"an older version than its tables", [&] { ExecuteOutside("PRAGMA user_version = 1"); }, "item_id", true},
           Row{"no mark", [&] { ExecuteOutside("PRAGMA application_id = 0"); }, "without our mark", true},
           Row{"a format to write", [&] { overwrite(18, "\x7F"); }, "no version that can be written", true},
           Row{"a format of the tables", [&] { overwrite(47, "\x7F"); }, "unsupported file format", true},
           Row{"the magic text", [&] { overwrite(0, "\x7F"); }, "not a database", true},
           Row{"a header of zeros", [&] { overwrite(0, std::string(100, '\0')); }, "not a database", true},
           Row{"all of the first page but the magic text", [&] { overwrite(16, std::string(4080, 'x')); },
               "not a database", true},
           Row{"all of the first page but our mark",
               [&] {
                 overwrite(0, std::string(68, 'x'));
                 overwrite(72, std::string(4024, 'x'));
               },
               "not a database", true},
           Row{"all of the first page", [&] { overwrite(0, std::string(4096, 'x')); }, "not a database", true},
           Row{"all of it, with changes of ours beside it",
               [&] {
                 const std::filesystem::path kept = folder_ / "kept";
                 const std::filesystem::path changes = file().string() + "-wal";
                 {
                   EventDataLogging store(options(), clock());
                   EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D2")), 0);
                   std::filesystem::copy_file(changes, kept);
                 }
                 std::ofstream(file(), std::ios::binary) << std::string(8192, 'x');
                 std::filesystem::rename(kept, changes);
               },
               "", true},
           Row{"nothing but zeros", [&] { std::ofstream(file()) << std::string(8192, '\0'); }, "not a database", true},
           Row{"cut in its header", [&] { std::filesystem::resize_file(file(), 50); }, "malformed", true},
           Row{"a lost table", [&] { ExecuteOutside("DROP TABLE record"); }, "no such table: record", true},
           Row{"a page", [&] { overwrite(4096, "\x7F"); }, "Page 2", true},
           Row{"cut short", [&] { std::filesystem::resize_file(file(), 5000); }, "malformed", true},
           Row{"cut to nothing", [&] { std::filesystem::resize_file(file(), 0); }, "the file was empty", false},
           Row{"cut to nothing, with changes beside it",
               [&] {
                 std::filesystem::resize_file(file(), 0);
                 std::ofstream(file().string() + "-wal") << "changes";
               },
               "cut to nothing", true},
       }) {
    SCOPED_TRACE(row.what);
    EmptyFolder();
    { EXPECT_EQ(EventDataLogging(options(), clock()).LogDeviceContext(MakeDeviceContext(L"D1")), 0); }
    row.damage();
    EventDataLogging store(options(), clock());
    EXPECT_TRUE(store.is_open());
    EXPECT_NE(store.opening_problem().find(row.told), std::string::npos) << store.opening_problem();
    EXPECT_EQ(store.opening_problem().find("not an error"), std::string::npos) << store.opening_problem();
    EXPECT_EQ(FilesSetAside(), row.set_aside ? 1u : 0u);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
    EXPECT_EQ(StoredTexts(), std::vector{ToJson(MakeItem(kCpu, L"I1", L"after"))});
  }
}

TEST_F(StoreFaultTest, WhatAKillLeftOfASettingAsideFollowsUnderItsName) {
  struct Row {
    const char* aside;  ///< What there is of an earlier one.
    bool with_changes;
    const char* name;  ///< Of the changes now.
  };
  for (const Row& row : {Row{".corrupt-20240102T000000", false, ".corrupt-20240102T000000-wal"},
                         Row{".corrupt-20240102T000000", true, ".corrupt-20260101T000000-wal"},
                         Row{".other", false, ".corrupt-20260101T000000-wal"}}) {
    SCOPED_TRACE(row.name);
    EmptyFolder();
    const std::string name = file().string();
    std::ofstream(name + row.aside) << "records";
    if (row.with_changes) std::ofstream(name + row.aside + "-wal") << "of its own";
    std::ofstream(name + "-wal") << "changes";
    EventDataLogging store(options(), clock());
    EXPECT_NE(store.opening_problem().find("its last changes are there without it"), std::string::npos);
    EXPECT_EQ(platform::ReadWholeFile(name + row.name, 100).value_or(""), "changes");
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
  }
}

TEST_F(StoreFaultTest, AStoreThatIsRemovedWhileItRunsIsBegunAnew) {
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
  std::error_code refused;
  std::filesystem::rename(file(), folder_ / "away.db", refused);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
  EXPECT_EQ(StoredTexts(), (std::vector{ToJson(MakeDeviceContext(L"D1")), ToJson(MakeItem(kCpu, L"I1", L"after"))}));
  EXPECT_NE(log_.Has(L"was removed or replaced"), static_cast<bool>(refused));
  if (refused) return;  // this system keeps a file that is open in its place
  Database away;
  ASSERT_EQ(away.Open(folder_ / "away.db", SQLITE_OPEN_READWRITE), 0);
  std::int64_t records = 0;
  EXPECT_EQ(away.ReadNumber("SELECT count(*) FROM record", records), 0);
  EXPECT_EQ(records, 1) << "what was moved away lost what the log of changes held";
}

}  // namespace
}  // namespace TVK

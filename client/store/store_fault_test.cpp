// The store on a disk that fails: a layer below SQLite refuses the n-th write or flush, for n = 1, 2, 3 and so on until
// a whole session gets through. Whatever happens, what was reported as written is there afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "client/store/sqlite_database.h"
#include "client/store/store_test_records.h"

namespace TVK {
namespace {

/// Stands in front of the system's file layer (sqlite.org/vfs.html) while it lives: the files are those of the layer
/// below, with two of their methods replaced.
class FailingDisk {
 public:
  FailingDisk() {
    below_ = sqlite3_vfs_find(nullptr);
    vfs_ = *below_;
    vfs_.zName = "failing";
    vfs_.pNext = nullptr;
    vfs_.xOpen = Open;
    sqlite3_vfs_register(&vfs_, 1);
  }
  ~FailingDisk() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(below_, 1);
  }
  FailingDisk(const FailingDisk&) = delete;
  FailingDisk& operator=(const FailingDisk&) = delete;

  /// The n-th write or flush from now fails with `code`, and all later ones when `for_good`. 0: none.
  void FailAt(int n, int code, bool for_good) {
    left_ = n;
    code_ = code;
    for_good_ = for_good;
    failed_ = false;
  }
  static bool failed() { return failed_; }

  /// Stores that are opened while it is set may not be written.
  void set_read_only(bool read_only) { read_only_ = read_only; }

 private:
  static bool Fails() {
    if (for_good_ && failed_) return true;
    if (left_ == 0 || --left_ != 0) return false;
    failed_ = true;
    return true;
  }

  static int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
    if (read_only_ && name != nullptr && std::string_view(name).ends_with(kStoreFileName)) {
      flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    }
    const int code = below_->xOpen(below_, name, file, flags, out_flags);
    if (file->pMethods == nullptr) return code;
    write_below_ = file->pMethods->xWrite;  // one for all kinds of files
    sqlite3_io_methods& methods = methods_[file->pMethods];
    methods = *file->pMethods;
    methods.iVersion = 2;  // without mapping, which would write past us
    methods.xWrite = Write;
    methods.xSync = Sync;
    file->pMethods = &methods;
    return code;
  }
  static int Write(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
    return Fails() ? code_ : write_below_(file, data, size, offset);
  }
  static int Sync(sqlite3_file* /*file*/, int /*flags*/) {
    // No power is lost here: what the layer below was given it has, so the real flush would only take time.
    return Fails() ? SQLITE_IOERR_FSYNC : SQLITE_OK;
  }

  sqlite3_vfs vfs_;
  static inline std::map<const sqlite3_io_methods*, sqlite3_io_methods> methods_;  ///< Ours, by those below.
  static inline decltype(sqlite3_io_methods::xWrite) write_below_ = nullptr;
  static inline sqlite3_vfs* below_ = nullptr;
  static inline int left_ = 0;
  static inline int code_ = 0;
  static inline bool for_good_ = false;
  static inline bool failed_ = false;
  static inline bool read_only_ = false;
};

class StoreFaultTest : public StoreTest {
 protected:
  // Writes through a store from its making to its end; the values of what was reported as written.
  std::vector<std::wstring> Session() {
    std::vector<std::wstring> written;
    EventDataLogging store(options(), clock());
    for (int i = 0; i < 12; ++i) {
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

TEST_F(StoreFaultTest, NothingReportedAsWrittenIsLostWhateverWriteFails) {
  for (const bool for_good : {false, true}) {
    for (const int code : {SQLITE_FULL, SQLITE_IOERR_WRITE}) {
      int n = 1;
      for (bool failed = true; failed; ++n) {
        SCOPED_TRACE("write " + std::to_string(n) + " fails with " + std::to_string(code));
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
          std::filesystem::remove(entry.path());
        }
        log_.Clear();
        FailingDisk disk;
        disk.FailAt(n, code, for_good);
        const std::vector<std::wstring> written = Session();
        failed = FailingDisk::failed();
        disk.FailAt(0, 0, false);
        EXPECT_GE(log_.Count(L"is lost, error"), 12 - written.size()) << "a silent loss";
        ExpectSoundWith(written);
        if (HasFatalFailure()) return;
      }
      EXPECT_GT(n, 20) << "the layer below saw few writes";
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

TEST_F(StoreFaultTest, AFileThatCannotBeWrittenIsNoOpenStore) {
  { const EventDataLogging store(options(), clock()); }
  // Somebody reads, so that the files are there which a connection could not make.
  Database reader;
  ASSERT_EQ(reader.Open(file(), SQLITE_OPEN_READWRITE), 0);
  ASSERT_EQ(reader.Execute("SELECT count(*) FROM record"), 0);
  FailingDisk disk;
  disk.set_read_only(true);
  const EventDataLogging store(options(), clock());
  disk.set_read_only(false);
  EXPECT_FALSE(store.is_open());
  EXPECT_TRUE(log_.Has(L"the file cannot be written"));
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

TEST_F(StoreFaultTest, AStoreThatIsBegunAnewHasTheContextsInForce) {
  {
    EventDataLogging store(options(), clock());
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1")), 0);
  }
  EventDataLogging store(options(), clock());
  DeviceContext device;
  EXPECT_EQ(store.GetLastDeviceContext(device), 0);
  DatasetContext dataset;
  EXPECT_EQ(store.GetLastDatasetContext(kCpu, dataset), 0);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M1")), 0);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M2")), 0);
  std::vector<std::string> heard;
  store.SetRecordListener([&](RecordKind, const std::string& json) { heard.push_back(json); });
  SpoilFile();
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
  EXPECT_TRUE(log_.Has(L"the store was damaged"));
  EXPECT_EQ(heard.size(), 4u);
  EXPECT_EQ(StoredTexts(), heard);
  ASSERT_FALSE(heard.empty());
  EXPECT_EQ(heard.front(), ToJson(MakeDeviceContext(L"D1")));
  EXPECT_EQ(std::ranges::count(heard, ToJson(MakeDatasetContext(kCpu, L"C1"))), 1);
  EXPECT_EQ(std::ranges::count(heard, ToJson(MakeDatasetContext(kMemory, L"M2"))), 1);
}

TEST_F(StoreFaultTest, AStoreThatIsRemovedWhileItRunsIsBegunAnew) {
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
  std::error_code refused;
  std::filesystem::rename(file(), folder_.path() / "away.db", refused);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"after")), 0);
  EXPECT_EQ(StoredTexts(), (std::vector{ToJson(MakeDeviceContext(L"D1")), ToJson(MakeItem(kCpu, L"I1", L"after"))}));
  EXPECT_NE(log_.Has(L"was removed or replaced"), static_cast<bool>(refused));
  if (refused) return;  // this system keeps a file that is open in its place
  Database away;
  ASSERT_EQ(away.Open(folder_.path() / "away.db", SQLITE_OPEN_READWRITE), 0);
  std::int64_t records = 0;
  EXPECT_EQ(away.ReadNumber("SELECT count(*) FROM record", records), 0);
  EXPECT_EQ(records, 1) << "what was moved away lost what the log of changes held";
}

}  // namespace
}  // namespace TVK

#include "client/store/erasure.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "client/store/failing_disk.h"
#include "client/store/store_file.h"
#include "client/store/store_test_records.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace TVK {
namespace {

class ErasureTest : public StoreTest {
 protected:
  // Whether the text stands in any file of the store's folder.
  bool IsOnDisk(const std::string& text) const {
    for (const auto& entry : std::filesystem::directory_iterator(file().parent_path())) {
      const std::string bytes = platform::ReadWholeFile(entry.path(), 64u << 20).value_or("");
      if (bytes.find(text) != std::string::npos) return true;
    }
    return false;
  }
  std::vector<std::int64_t> Sequences() const {
    std::vector<std::int64_t> sequences;
    for (const StoredRecord& record : Stored())
      sequences.push_back(record.sequence);
    return sequences;
  }
  // 1 and 2: contexts. 3: CPU, old. 4: memory, old, the store's oldest after retention. 5: CPU, new.
  void Fill(EventDataLogging& store) {
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"SECRET-OLD", L"C1"), {L"counted", L"SECRET-STATE"}), 0);
    for (const std::wstring& key : kPlaces)
      EXPECT_EQ(store.KeepState(kCpu, {key, L"PLACE"}), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I1", L"OTHER-OLD", L"", L"D1")), 0);
    world_.AdvanceBy(std::chrono::seconds(10));
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"SECRET-NEW", L"C1")), 0);
  }
  std::uint64_t Erase(EventDataLogging& store, const Erasure& erasure) {
    std::uint64_t announced = 0;
    {
      Database database;
      EXPECT_EQ(OpenStoreReadOnly(file(), database).state, StoreFileState::kReady);
      EXPECT_EQ(CountErasure(database, erasure, announced), 0);
    }
    std::uint64_t count = 0;
    EXPECT_EQ(store.Erase(erasure, count), 0);
    EXPECT_EQ(announced, count);
    return count;
  }

  const std::vector<std::wstring> kPlaces = {kBookmarkState, kInterruptionState,
                                             std::wstring(kMemoryErrorsState) + L"mc0"};
};

using Numbers = std::vector<std::int64_t>;

TEST_F(ErasureTest, OfADatasetLeavesTheOthersAndNoByteOfIt) {
  EventDataLogging store(options(), clock());
  Fill(store);
  EXPECT_TRUE(IsOnDisk("SECRET-OLD"));
  EXPECT_EQ(Erase(store, {.dataset_id = String::UTF16ToUTF8(kCpu)}), 3u);
  EXPECT_EQ(Sequences(), (Numbers{1, 4}));
  for (const char* const text : {"SECRET", "C1"})
    EXPECT_FALSE(IsOnDisk(text)) << text;
  EXPECT_TRUE(IsOnDisk("OTHER-OLD"));
  std::wstring place;
  for (const std::wstring& key : kPlaces)
    EXPECT_EQ(store.GetState(kCpu, key, place), 0) << "what was deleted would be read again";

  EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I1", L"next", L"", L"D1")), 0);
  EXPECT_EQ(Sequences(), (Numbers{1, 4, 6})) << "no number twice, and no context that nothing names";
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"next", L"C1")), 0);
  EXPECT_EQ(Sequences(), (Numbers{1, 4, 6, 7, 8}));
  EXPECT_EQ(CountDangling(), 0);
}

TEST_F(ErasureTest, OfAllOrOfWhatIsOld) {
  EventDataLogging store(options(), clock());
  Fill(store);
  EXPECT_EQ(Erase(store, {.before_seconds = clock().NowSeconds()}), 3u);
  EXPECT_EQ(Sequences(), (Numbers{2, 5})) << "a context that is named stays";
  EXPECT_FALSE(IsOnDisk("OLD"));
  EXPECT_TRUE(IsOnDisk("SECRET-NEW"));
  EXPECT_EQ(Erase(store, {}), 2u);
  EXPECT_EQ(Sequences(), Numbers{});
  for (const char* const text : {"SECRET", "C1", "D1"})
    EXPECT_FALSE(IsOnDisk(text)) << text;
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"next")), 0);
  EXPECT_EQ(Sequences(), Numbers{6});
  std::vector<ItemEvent> events;
  EXPECT_EQ(store.ReadItemEvents(kCpu, 4, 5, events), 0);
  EXPECT_EQ(events.size(), 1u) << "record ids go on";
}

TEST_F(ErasureTest, LeavesWhatWasWrittenAfterItWasAskedFor) {
  EventDataLogging store(options(), clock());
  Fill(store);
  Erasure erasure;
  EXPECT_EQ(store.GetLastSequence(erasure.through_sequence.emplace()), 0);
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"later"), {L"counted", L"later"}), 0);
  EXPECT_EQ(Erase(store, erasure), 5u);
  EXPECT_EQ(Sequences(), Numbers{6});
  std::wstring state;
  EXPECT_EQ(store.GetState(kCpu, L"counted", state), 0);
  erasure.through_sequence = 7;
  std::uint64_t count = 0;
  EXPECT_EQ(store.Erase(erasure, count), 0);
  EXPECT_EQ(count, 0u) << "of another store";
}

TEST_F(ErasureTest, WhatAWrongClockDatedGoesWithTheOlderOneBehindIt) {
  EventDataLogging store(options(), clock());
  Fill(store);
  Database database;
  ASSERT_EQ(database.Open(file(), SQLITE_OPEN_READWRITE), 0);
  ASSERT_EQ(database.Execute("UPDATE record SET written = written + 1000000 WHERE sequence IN (3, 5)"), 0);
  const std::int64_t now = clock().NowSeconds();
  EXPECT_EQ(Erase(store, {.before_seconds = now - 5, .asked_seconds = now}), 3u);
  EXPECT_EQ(Sequences(), (Numbers{2, 5}));
}

TEST_F(ErasureTest, AContextThatWaitsStaysAwayToo) {
  EventDataLogging store(options(), clock());
  Fill(store);
  store.RememberDeviceContext(MakeDeviceContext(L"SECRET-DEVICE"));
  Erase(store, {});
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"next")), 0);
  EXPECT_FALSE(IsOnDisk("SECRET-DEVICE"));
  EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"next", L"", L"SECRET-DEVICE")), 0) << "until it is named";
}

TEST_F(ErasureTest, TheSameAgainDoesWhatAFailureLeft) {
  bool failed = true;
  for (int n = 1; failed; ++n) {
    SCOPED_TRACE(n);
    std::filesystem::remove_all(file().parent_path());
    std::filesystem::create_directories(file().parent_path());
    FailingDisk disk;
    {
      EventDataLogging store(options(), clock());
      Fill(store);
      disk.FailAt(n, SQLITE_IOERR_WRITE, true);
      std::uint64_t count = 0;
      const int code = store.Erase({}, count);
      failed = FailingDisk::failed();
      EXPECT_EQ(code == 0, !failed);
      disk.FailAt(0, 0, false);
    }
    EventDataLogging store(options(), clock());
    Erase(store, {});
    EXPECT_EQ(Sequences(), Numbers{});
    EXPECT_FALSE(IsOnDisk("SECRET"));
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
}  // namespace TVK

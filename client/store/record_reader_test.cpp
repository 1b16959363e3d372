#include "client/store/record_reader.h"

#include <gtest/gtest.h>

#include <fstream>

#include "client/store/store_test_records.h"

namespace TVK {
namespace {

class RecordReaderTest : public StoreTest {
 protected:
  std::vector<std::int64_t> Sequences(const RecordQuery& query) {
    std::vector<std::int64_t> sequences;
    for (const StoredRecord& record : Stored(query))
      sequences.push_back(record.sequence);
    return sequences;
  }
};

TEST_F(RecordReaderTest, QueriesNarrowAndKeepTheOrder) {
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
  using Numbers = std::vector<std::int64_t>;
  EXPECT_EQ(Sequences({}), (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(Sequences({.kind = RecordKind::kDataset}), Numbers{2});
  EXPECT_EQ(Sequences({.dataset_name = L"cpuEVENT"}), (Numbers{2, 3, 5}));
  EXPECT_EQ(Sequences({.since_seconds = start + 10}), (Numbers{4, 5}));
  EXPECT_EQ(Sequences({.since_seconds = start + 11}), Numbers{});
  EXPECT_EQ(Sequences({.after_sequence = 3}), (Numbers{4, 5}));
  EXPECT_EQ(Sequences({.limit = 2}), (Numbers{4, 5}));
  EXPECT_EQ(Sequences({.kind = RecordKind::kItem, .dataset_name = L"CPUEvent", .limit = 1}), Numbers{5});
  EXPECT_EQ(Sequences({.limit = ~0ull}).size(), 5u);
  for (const char* suffix : {"-wal", "-shm"})
    EXPECT_FALSE(std::filesystem::exists(file().string() + suffix)) << suffix << " left by a reader";
}

TEST_F(RecordReaderTest, SaysWhyItCannotRead) {
  std::string problem;
  EXPECT_EQ(RecordReader::Open(file(), problem), nullptr);
  EXPECT_EQ(problem, "there is no such file");
  for (const std::string& content : {std::string("no database at all"), std::string()}) {
    std::ofstream(file(), std::ios::binary) << content;
    problem.clear();
    EXPECT_EQ(RecordReader::Open(file(), problem), nullptr) << content;
    EXPECT_FALSE(problem.empty());
  }
}

}  // namespace
}  // namespace TVK

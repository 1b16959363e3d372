// Contexts by dataset and device: which one is the last, what may name them, which of them stay, and how a store of an
// older version comes by its references.
#include <gtest/gtest.h>

#include <functional>

#include "client/store/failing_disk.h"
#include "client/store/store_test_records.h"
#include "testing/source_tree.h"

namespace TVK {
namespace {

class StoreContextTest : public StoreTest {
 protected:
  static std::wstring LastOf(const EventDataLogging& store, const std::wstring& device_key) {
    DatasetContext context;
    return store.GetLastDatasetContextOfDevice(kCpu, device_key, context) == 0 ? context.dataset_context_id() : L"none";
  }
  static std::wstring Earlier(const EventDataLogging& store, const std::optional<std::wstring>& device_key = {}) {
    std::vector<DatasetContext> contexts;
    EXPECT_EQ(store.GetEarlierDatasetContexts(kCpu, contexts, device_key), 0);
    return IdsOf(contexts);
  }
};

TEST_F(StoreContextTest, EachDeviceHasItsOwnLastContext) {
  {
    EventDataLogging store(options(), clock());
    EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"A1", L"D1"), L"battery A"), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"B1", L"D1"), L"battery B"), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"A2", L"D1"), L"battery A"), 0);
    EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kMemory, L"M1", L"D1")), 0);
  }
  for (const bool reopened : {false, true}) {
    SCOPED_TRACE(reopened);
    EventDataLogging store(options(), clock());
    EXPECT_EQ(LastOf(store, L"battery A"), L"A2");
    EXPECT_EQ(LastOf(store, L"battery B"), L"B1");
    EXPECT_EQ(LastOf(store, L""), L"none");
    DatasetContext last;
    EXPECT_EQ(store.GetLastDatasetContext(kCpu, last), 0);
    EXPECT_EQ(last, MakeDatasetContext(kCpu, L"A2", L"D1"));
    EXPECT_EQ(Earlier(store), L"A2 B1 A1 ");
    EXPECT_EQ(Earlier(store, L"battery A"), L"A2 A1 ");
    EXPECT_EQ(Earlier(store, L"battery C"), L"");
  }
  for (const std::string& text : StoredTexts())
    EXPECT_EQ(text.find("battery"), std::string::npos) << "a device key left its column";
  EventDataLogging store(options(), clock());
  for (std::size_t i = 0; i < kMostEarlierContexts; ++i)
    ASSERT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"N" + std::to_wstring(i), L"D1"), L"battery B"), 0);
  std::vector<DatasetContext> contexts;
  EXPECT_EQ(store.GetEarlierDatasetContexts(kCpu, contexts), 0);
  ASSERT_EQ(contexts.size(), kMostEarlierContexts);
  EXPECT_EQ(contexts.front().dataset_context_id(), L"N199");
  EXPECT_EQ(contexts.back().dataset_context_id(), L"N0");
}

TEST_F(StoreContextTest, ARecordThatNamesAnUnknownContextIsRefused) {
  EventDataLogging store(options(), clock());
  EXPECT_EQ(store.LogDeviceContext(MakeDeviceContext(L"D1")), 0);
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C1", L"D1")), 0);
  struct {
    const wchar_t* dataset_context_id;
    const wchar_t* device_context_id;
    int result;
  } const rows[] = {{L"", L"", 0},
                    {L"C1", L"", 0},
                    {L"", L"D1", 0},
                    {L"C1", L"D1", 0},
                    {L"C2", L"D1", kStoreUnknownContext},
                    {L"C1", L"D2", kStoreUnknownContext},
                    {L"D1", L"C1", kStoreUnknownContext}};
  std::size_t stored = 2;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.result);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"", row.dataset_context_id, row.device_context_id)),
                row.result);
    }
    stored += row.result == 0 ? 2 : 0;
  }
  EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"C3", L"D3")), kStoreUnknownContext);
  EXPECT_EQ(LastOf(store, L""), L"C1") << "one that is refused is not remembered";
  EXPECT_EQ(Stored().size(), stored);
  EXPECT_EQ(CountDangling(), 0);
  EXPECT_EQ(log_.Count(L"is refused"), 4u) << "once for each";
  EXPECT_FALSE(log_.Has(L"records are written again"));
}

TEST_F(StoreContextTest, RetentionLeavesWhatTheProcessUses) {
  // Two superseded contexts of one battery and the last one; the last one of another battery. Nothing names them.
  struct {
    const char* what;
    std::function<void(EventDataLogging&)> use;
    std::wstring left;
  } const rows[] = {
      {"nothing is asked", [](EventDataLogging&) {}, L"B1 A3 "},
      {"the last ones", [](EventDataLogging& store) { EXPECT_EQ(LastOf(store, L"A"), L"A3"); }, L"B1 A3 "},
      {"the list", [](EventDataLogging& store) { EXPECT_EQ(Earlier(store), L"B1 A3 A2 A1 "); }, L"B1 A3 A2 A1 "},
      {"the list of another one", [](EventDataLogging& store) { EXPECT_EQ(Earlier(store, L"B"), L"B1 "); }, L"B1 A3 "},
      {"the list, and then a new one",
       [](EventDataLogging& store) {
         EXPECT_EQ(Earlier(store, L"A"), L"A3 A2 A1 ");
         EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"A4"), L"A"), 0);
       },
       L"A4 B1 A3 A2 A1 "},
      {"the list, and then three new ones",
       [](EventDataLogging& store) {
         EXPECT_EQ(Earlier(store), L"B1 A3 A2 A1 ");
         for (const wchar_t* id : {L"A4", L"A5", L"A6"})
           EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, id), L"A"), 0);
       },
       L"A6 A5 B1 "},
      {"the context that a kept item names",
       [](EventDataLogging& store) { EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"", L"A1")), 0); },
       L"B1 A3 A1 "},
  };
  StoreOptions limited = options();
  limited.limits.max_age_seconds = 3600;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    EmptyFolder();
    {
      EventDataLogging store(limited, clock());
      for (const wchar_t* id : {L"A1", L"A2", L"A3"})
        EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, id), L"A"), 0);
      EXPECT_EQ(store.LogDatasetContext(MakeDatasetContext(kCpu, L"B1"), L"B"), 0);
    }
    {
      EventDataLogging store(limited, clock());
      row.use(store);
      world_.AdvanceBy(std::chrono::hours(2));
      EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I2", L"makes retention look")), 0);
    }
    EXPECT_EQ(Earlier(EventDataLogging(options(), clock())), row.left);
    EXPECT_EQ(CountDangling(), 0);
  }
}

TEST_F(StoreContextTest, WhatADatasetKeepsIsWrittenWithItsItemOrNotAtAll) {
  const auto state = [](const EventDataLogging& store, const std::wstring& dataset, const std::wstring& key) {
    std::wstring value = L"none";
    const int code = store.GetState(dataset, key, value);
    EXPECT_EQ(code, value == L"none" ? kStoreNotFound : 0);
    return value;
  };
  {
    EventDataLogging store(options(), clock());
    EXPECT_EQ(state(store, kCpu, L"mark"), L"none");
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"1"), {L"mark", L"one"}), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"2"), {L"other", L"a"}), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kMemory, L"I2", L"3"), {L"mark", L"of memory"}), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"4"), {L"mark", L"two"}), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"5")), 0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"6", L"unknown"), {L"mark", L"refused"}), kStoreUnknownContext);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", std::wstring(kLongestRecordJson, L'x')), {L"mark", L"long"}),
              SQLITE_TOOBIG);
    int told = 0;
    store.SetRecordListener([&](RecordKind, const std::string&) { ++told; });
    EXPECT_EQ(store.KeepState(kCpu, {L"alone", L"1"}), 0);
    EXPECT_EQ(told, 0) << "it is no record";
  }
  const EventDataLogging store(options(), clock());
  EXPECT_EQ(state(store, kCpu, L"mark"), L"two");
  EXPECT_EQ(state(store, kCpu, L"other"), L"a");
  EXPECT_EQ(state(store, kCpu, L"alone"), L"1");
  EXPECT_EQ(state(store, kMemory, L"mark"), L"of memory");
  EXPECT_EQ(state(store, kMemory, L"other"), L"none");
}

/// A store that the first version of the client wrote: a change of the region, then another one whose contexts could
/// not be written because somebody held the file, so that the two items behind it name three contexts that are nowhere.
class OldStoreTest : public StoreContextTest {
 protected:
  static constexpr std::size_t kRecords = 15;
  static constexpr std::size_t kLost = 3;

  OldStoreTest() { TakeFixture(); }
  void TakeFixture() {
    EmptyFolder();
    std::filesystem::copy_file(FromSourceTree("client/store/testdata/records-v1.db"), file());
    std::filesystem::permissions(file(), std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
  }
  static StoreOptions Unlimited(StoreOptions options) {
    options.limits.max_age_seconds = 0;
    return options;
  }
};

TEST_F(OldStoreTest, IsReadAsItIsAndUpgradedWithoutALoss) {
  EXPECT_EQ(CountDangling(), 2 + 2);
  const std::vector<std::string> before = StoredTexts();
  ASSERT_EQ(before.size(), kRecords) << "a reader of today reads a file that no service has upgraded yet";
  {
    EventDataLogging store(Unlimited(options()), clock());
    EXPECT_EQ(store.opening_problem(), "");
    DatasetContext last;
    EXPECT_EQ(store.GetLastDatasetContext(kCpu, last), 0);
    EXPECT_EQ(ToJson(last), before[13]);
    DeviceContext device;
    EXPECT_EQ(store.GetLastDeviceContext(device), 0);
    EXPECT_EQ(ToJson(device), before[12]);
    EXPECT_EQ(store.GetDeviceContext(L"9561F5A5-0B19-4675-8FDF-FD938474EEF6", device), 0) << "a placeholder";
    EXPECT_EQ(device.device_context_datetime(), L"2026-11-21T23:01:57+0000");
    ItemEvent item;
    EXPECT_EQ(store.GetLastItemEventWithItemId(kCpu, L"FC8782AC-7C54-4D27-9A21-E2B87D2A197B", item), 0);
    EXPECT_EQ(ToJson(item), before[3]);
    std::vector<DatasetContext> earlier;
    EXPECT_EQ(store.GetEarlierDatasetContexts(kMemory, earlier), 0);
    ASSERT_EQ(earlier.size(), 4u);
    EXPECT_EQ(ToJson(earlier[3]),
              R"({"dataset_context_id":"7316B86C-A285-4F3D-B32C-973D74374C67",)"
              R"("dataset_context_datetime":"2026-11-21T23:01:57+0000",)"
              R"("dataset_id":"3267A6D2-D6FD-4C29-87E7-9BF83E459C29","dataset_name":"MemoryEvent"})");
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"new", last.dataset_context_id(), last.device_context_id())),
              0);
    EXPECT_EQ(store.LogItemEvent(MakeItem(kCpu, L"I1", L"late", L"5DB74718-56AE-4EE2-B8F6-3528064BB61D")), 0);
  }
  std::vector<StoredRecord> after = Stored();
  ASSERT_EQ(after.size(), kLost + kRecords + 2);
  EXPECT_EQ(after[0].written_seconds, after[kLost + 10].written_seconds) << "as old as the first that names it";
  after.erase(after.begin(), after.begin() + kLost);
  for (std::size_t i = 0; i < kRecords; ++i) {
    EXPECT_EQ(after[i].json, before[i]);
    EXPECT_EQ(after[i].sequence, static_cast<std::int64_t>(i) + 1);
  }
  EXPECT_EQ(CountDangling(), 0);
}

TEST_F(OldStoreTest, LosesItsReferencesToRetentionOnlyWithWhatNamesThem) {
  // The items that name the placeholders are the last ones of their kinds and stay; the others go with their contexts.
  StoreOptions limited = options();
  limited.limits.max_age_seconds = 3600;
  ExecuteOutside(
      "UPDATE record SET written = 1767225600 - 7200;"
      "INSERT INTO record SELECT 0, series, 0, written, 'no JSON' FROM record WHERE sequence = 1");
  { const EventDataLogging store(limited, clock()); }
  std::vector<std::int64_t> left;
  for (const StoredRecord& record : Stored())
    left.push_back(record.sequence);
  EXPECT_EQ(left, (std::vector<std::int64_t>{-24, -23, -22, 1, 2, 3, 4, 5, 11, 12, 13, 14, 15}));
  EXPECT_EQ(CountDangling(), 0);
}

TEST_F(OldStoreTest, StaysWholeWhenTheUpgradeFails) {
  const std::vector<std::string> before = StoredTexts();
  bool failed = true;
  for (int n = 1; failed; ++n) {
    SCOPED_TRACE(n);
    TakeFixture();
    FailingDisk disk;
    disk.FailAt(n, SQLITE_FULL, true);
    { const EventDataLogging store(Unlimited(options()), clock()); }
    failed = FailingDisk::failed();
    disk.FailAt(0, 0, false);
    std::vector<std::string> texts = StoredTexts();
    ASSERT_GE(texts.size(), before.size());
    EXPECT_EQ(std::vector(texts.end() - static_cast<std::ptrdiff_t>(before.size()), texts.end()), before);
    EXPECT_EQ(FilesSetAside(), 0u);
    EXPECT_TRUE(EventDataLogging(Unlimited(options()), clock()).is_open());
    EXPECT_EQ(CountDangling(), 0);
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
}  // namespace TVK

// Records and a store file for the tests of this folder.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "client/records/record_json.h"
#include "client/store/event_data_logging.h"
#include "client/store/record_reader.h"
#include "client/store/sqlite_database.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"
#include "testing/temp_folder.h"

namespace TVK {

inline const std::wstring kCpu = L"9492447A-FCAC-428E-B7A8-7F7918199480";
inline const std::wstring kMemory = L"3267A6D2-D6FD-4C29-87E7-9BF83E459C29";

inline ItemEvent MakeItem(const std::wstring& dataset_id, const std::wstring& item_id, const std::wstring& value,
                          const std::wstring& dataset_context_id = {}, const std::wstring& device_context_id = {}) {
  ItemEvent event;
  event.set_dataset_id(dataset_id);
  event.set_dataset_name(dataset_id == kCpu ? L"CPUEvent" : L"MemoryEvent");
  event.set_item_id(item_id);
  event.set_dataset_context_id(dataset_context_id);
  event.set_device_context_id(device_context_id);
  event.set_item_data({{L"value", value}});
  return event;
}

inline DatasetContext MakeDatasetContext(const std::wstring& dataset_id, const std::wstring& id,
                                         const std::wstring& device_context_id = {}) {
  DatasetContext context;
  context.set_dataset_id(dataset_id);
  context.set_dataset_name(dataset_id == kCpu ? L"CPUEvent" : L"MemoryEvent");
  context.set_dataset_context_id(id);
  context.set_device_context_id(device_context_id);
  return context;
}

inline DeviceContext MakeDeviceContext(const std::wstring& id) {
  DeviceContext context;
  context.set_device_context_id(id);
  return context;
}

/// The ids of contexts, each with a blank behind it.
inline std::wstring IdsOf(const std::vector<DatasetContext>& contexts) {
  std::wstring ids;
  for (const DatasetContext& context : contexts)
    ids += context.dataset_context_id() + L' ';
  return ids;
}

inline std::wstring ValueOf(const ItemEvent& event) {
  const auto found = event.item_data().find(L"value");
  return found == event.item_data().end() ? L"" : found->second;
}

/// A folder for a store, a clock and the lines of its log.
class StoreTest : public testing::Test {
 protected:
  StoreTest() { std::filesystem::create_directory(folder_); }
  std::filesystem::path file() const { return folder_ / kStoreFileName; }
  StoreOptions options() const {
    StoreOptions options;
    options.file = file();
    options.busy_timeout = std::chrono::milliseconds(20);
    return options;
  }
  const platform::Clock& clock() const { return world_.clock(); }

  // What takes each record that is read.
  static RecordReader::Take Into(std::vector<StoredRecord>& records) {
    return [&records](std::span<const StoredRecord> some) {
      records.insert(records.end(), some.begin(), some.end());
      return true;
    };
  }
  // What a reader finds, in the order of writing.
  std::vector<StoredRecord> Stored(const RecordQuery& query = {}) const {
    std::string problem;
    std::vector<StoredRecord> records;
    const auto reader = RecordReader::Open(file(), problem);
    EXPECT_TRUE(reader != nullptr && reader->Read(query, Into(records), problem)) << problem;
    return records;
  }
  std::vector<std::string> StoredTexts() const {
    std::vector<std::string> texts;
    for (const StoredRecord& record : Stored())
      texts.push_back(record.json);
    return texts;
  }

  // Records that name a context which no record of the file has, found without what the store keeps beside its JSON.
  std::int64_t CountDangling() {
    Database database;
    EXPECT_EQ(database.Open(file(), SQLITE_OPEN_READWRITE), 0);
    std::int64_t all = 0;
    for (const auto& [kind, id] : {std::pair("1", "'dataset_context_id'"), {"2", "'device_context_id'"}}) {
      const auto field = [id = id](std::string of) { return of + ".json ->> " + id; };
      const std::string sql = "SELECT count(*) FROM record r JOIN series s ON s.id = r.series WHERE s.kind < " +
                              std::string(kind) + " AND json_valid(r.json) AND " + field("r") + " <> '' AND " +
                              field("r") + " NOT IN (SELECT ifnull(" + field("c") +
                              ", '') FROM record c JOIN series t ON t.id = c.series WHERE t.kind = " + kind +
                              " AND json_valid(c.json))";
      std::int64_t dangling = -1;
      EXPECT_EQ(database.ReadNumber(sql.c_str(), dangling), 0);
      all += dangling;
    }
    return all;
  }
  std::size_t FilesSetAside() const {
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
      files += entry.path().extension().string().starts_with(".corrupt-") && !entry.path().string().ends_with("-wal") &&
               !entry.path().string().ends_with("-shm");
    return files;
  }
  void EmptyFolder() {
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
      std::filesystem::remove(entry.path());
  }

  void ExecuteOutside(const std::string& sql) {
    Database database;
    ASSERT_EQ(database.Open(file(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), 0);
    const int code = database.Execute(sql.c_str());
    ASSERT_EQ(code, 0) << database.Message(code);
  }
  // Noise behind the header of the file, under a store that runs.
  void SpoilFile() {
    ExecuteOutside("PRAGMA wal_checkpoint(TRUNCATE)");
    {
      std::fstream out(file(), std::ios::binary | std::ios::in | std::ios::out);
      const std::string noise(std::filesystem::file_size(file()) - 100, '\xA5');
      out.seekp(100);
      out << noise;
    }
    ExecuteOutside("PRAGMA user_version = 2");  // makes the store's connections read the file again
  }

  TempFolder temp_;
  const std::filesystem::path folder_ = temp_.path() / "a %41#z~9";  ///< As no URI has it.
  LogCapture log_;
  platform::VirtualRuntime world_;
};

}  // namespace TVK

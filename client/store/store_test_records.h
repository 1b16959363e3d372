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
                          const std::wstring& dataset_context_id = L"C1",
                          const std::wstring& device_context_id = L"D1") {
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
                                         const std::wstring& device_context_id = L"D1") {
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

inline std::wstring ValueOf(const ItemEvent& event) {
  const auto found = event.item_data().find(L"value");
  return found == event.item_data().end() ? L"" : found->second;
}

/// A folder for a store, a clock and the lines of its log.
class StoreTest : public testing::Test {
 protected:
  std::filesystem::path file() const { return folder_.path() / kStoreFileName; }
  StoreOptions options() const {
    StoreOptions options;
    options.file = file();
    options.busy_timeout = std::chrono::milliseconds(20);
    return options;
  }
  const platform::Clock& clock() const { return world_.clock(); }

  // What a reader finds, in the order of writing.
  std::vector<StoredRecord> Stored(const RecordQuery& query = {}) const {
    std::string problem;
    std::vector<StoredRecord> records;
    const auto reader = RecordReader::Open(file(), problem);
    EXPECT_TRUE(reader != nullptr && reader->Read(query, records, problem)) << problem;
    return records;
  }
  std::vector<std::string> StoredTexts() const {
    std::vector<std::string> texts;
    for (const StoredRecord& record : Stored())
      texts.push_back(record.json);
    return texts;
  }

  void ExecuteOutside(const std::string& sql) {
    Database database;
    ASSERT_EQ(database.Open(file(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), 0);
    ASSERT_EQ(database.Execute(sql.c_str()), 0) << database.Message();
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
    ExecuteOutside("PRAGMA user_version = 1");  // makes the store's connections read the file again
  }

  TempFolder folder_;
  LogCapture log_;
  platform::VirtualRuntime world_;
};

}  // namespace TVK

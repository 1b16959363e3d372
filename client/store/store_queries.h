// What the component asks of the store, as JSON texts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "client/records/record_kind.h"
#include "client/store/sqlite_database.h"

namespace TVK {

/// Results: 0, kStoreNotFound, or SQLite's code. Texts are UTF-8. One thread at a time.
class StoreQueries {
 public:
  explicit StoreQueries(Database& database) : database_(database) {}

  int Prepare();

  /// The record written last of a series; ids that its kind does not have are empty.
  int Last(RecordKind kind, std::string_view dataset_id, std::string_view item_id, std::string& json);
  int LastItemOfAnyDataset(std::string_view item_id, std::string& json);
  int DeviceContextById(std::string_view device_context_id, std::string& json);

  /// Gives each item event of the dataset with a record id in [first, end) to `take`, in their order.
  int Items(std::string_view dataset_id, std::int64_t first, std::int64_t end,
            const std::function<void(std::int64_t id, std::string_view json)>& take);

 private:
  Database& database_;
  Statement last_;
  Statement last_of_any_dataset_;
  Statement device_context_;
  Statement items_;
};

}  // namespace TVK

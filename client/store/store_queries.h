// What the component asks of the store, as JSON texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/records/record_kind.h"
#include "client/store/sqlite_database.h"

namespace TVK {

/// A stored record as a query finds it; the texts live during the call that hands it over.
struct FoundRecord {
  std::int64_t sequence;
  std::string_view key;  ///< Item id or device key.
  std::string_view json;
};

/// Results: 0, kStoreNotFound, or SQLite's code. Texts are UTF-8. One thread at a time.
class StoreQueries {
 public:
  using Take = std::function<void(const FoundRecord&)>;

  explicit StoreQueries(Database& database) : database_(database) {}

  int Prepare();

  /// The item event written last of a dataset's item.
  int LastItem(std::string_view dataset_id, std::string_view item_id, const Take& take);
  int LastItemOfAnyDataset(std::string_view item_id, const Take& take);

  /// The last contexts of a dataset's device, of all its devices without `key`, and for the kind kDevice (no dataset)
  /// of all; newest first, at most so many. Not finding any is no failure.
  int LastContexts(RecordKind kind, std::string_view dataset_id, const std::optional<std::string>& key,
                   std::size_t at_most, const Take& take);
  int DeviceContextById(std::string_view device_context_id, const Take& take);

  /// What the dataset keeps under the key.
  int State(std::string_view dataset_id, std::string_view key, std::string& value);

  /// Gives each item event of the dataset with a record id in [first, end) to `take`, in their order.
  int Items(std::string_view dataset_id, std::int64_t first, std::int64_t end,
            const std::function<void(std::int64_t id, std::string_view json)>& take);

 private:
  Database& database_;
  Statement last_item_;
  Statement last_of_any_dataset_;
  Statement contexts_of_device_;
  Statement contexts_of_dataset_;
  Statement device_context_;
  Statement state_;
  Statement items_;
};

}  // namespace TVK

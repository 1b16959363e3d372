// Records as JSON, the form in which the store keeps them and tvkctl shows them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tvk/records.h"

namespace TVK {

/// The longest text that the functions below read, in bytes; the largest device context takes a few thousand.
inline constexpr std::size_t kLongestRecordJson = 1 << 20;

/// One JSON object on one line, UTF-8, keys in the order of the record's fields; empty fields are left out. Item data
/// is the object "item_data"; a device context has the objects "device_info", "region_info" and "tvk_info". Any thread.
std::string ToJson(const ItemEvent& record);
std::string ToJson(const DatasetContext& record);
std::string ToJson(const DeviceContext& record);
/// Item data alone, as one object.
std::string ToJson(const ItemData& data);

/// The inverse; nothing when `json` is not such an object. Keys that the record does not have are passed over.
std::optional<ItemEvent> ItemEventFromJson(std::string_view json);
std::optional<DatasetContext> DatasetContextFromJson(std::string_view json);
std::optional<DeviceContext> DeviceContextFromJson(std::string_view json);

}  // namespace TVK

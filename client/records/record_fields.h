// The text fields of each record class, in the order in which they are written. What follows this order is the JSON
// form of the records, the table of a person's tool and the comparison of device contexts; they walk these lists
// instead of naming the fields again.
#pragma once

#include <string>

#include "tvk/records.h"

namespace TVK {

/// One text field: its key and its accessors.
template <typename Record>
struct TextField {
  const char* key;
  const std::wstring& (Record::*get)() const noexcept;
  void (Record::*set)(std::wstring);
  /// Of a device context and its parts: whether another value makes another context. Times of looking, what names the
  /// record itself and the extension values say nothing about the device.
  bool compared = true;
};

#define TVK_TEXT_FIELD(Record, name, ...)                                \
  TextField<Record> {                                                    \
#name, &Record::name, &Record::set_##name __VA_OPT__(, ) __VA_ARGS__ \
  }

inline constexpr TextField<ItemEvent> kItemEventFields[] = {
    TVK_TEXT_FIELD(ItemEvent, dataset_id),
    TVK_TEXT_FIELD(ItemEvent, dataset_name),
    TVK_TEXT_FIELD(ItemEvent, dataset_context_id),
    TVK_TEXT_FIELD(ItemEvent, device_context_id),
    TVK_TEXT_FIELD(ItemEvent, item_id),
    TVK_TEXT_FIELD(ItemEvent, item_name),
    TVK_TEXT_FIELD(ItemEvent, item_time),
    TVK_TEXT_FIELD(ItemEvent, item_context_id),
    TVK_TEXT_FIELD(ItemEvent, schema_ver),
    TVK_TEXT_FIELD(ItemEvent, source),
    TVK_TEXT_FIELD(ItemEvent, source_component),
};

inline constexpr TextField<DatasetContext> kDatasetContextFields[] = {
    TVK_TEXT_FIELD(DatasetContext, dataset_context_id), TVK_TEXT_FIELD(DatasetContext, dataset_context_datetime),
    TVK_TEXT_FIELD(DatasetContext, dataset_id),         TVK_TEXT_FIELD(DatasetContext, dataset_name),
    TVK_TEXT_FIELD(DatasetContext, dataset_type),       TVK_TEXT_FIELD(DatasetContext, device_context_id),
    TVK_TEXT_FIELD(DatasetContext, schema_ver),         TVK_TEXT_FIELD(DatasetContext, source),
    TVK_TEXT_FIELD(DatasetContext, source_component),
};

inline constexpr TextField<DeviceInfo> kDeviceInfoFields[] = {
    TVK_TEXT_FIELD(DeviceInfo, device_id),
    TVK_TEXT_FIELD(DeviceInfo, device_id2),
    TVK_TEXT_FIELD(DeviceInfo, device_name),
    TVK_TEXT_FIELD(DeviceInfo, device_manufacturer),
    TVK_TEXT_FIELD(DeviceInfo, device_brand),
    TVK_TEXT_FIELD(DeviceInfo, device_subbrand),
    TVK_TEXT_FIELD(DeviceInfo, device_family),
    TVK_TEXT_FIELD(DeviceInfo, device_modeltype),
    TVK_TEXT_FIELD(DeviceInfo, device_enclosuretype),
    TVK_TEXT_FIELD(DeviceInfo, device_biosversion),
    TVK_TEXT_FIELD(DeviceInfo, device_ecversion),
    TVK_TEXT_FIELD(DeviceInfo, device_smbiosversion),
    TVK_TEXT_FIELD(DeviceInfo, os_name),
    TVK_TEXT_FIELD(DeviceInfo, os_version),
    TVK_TEXT_FIELD(DeviceInfo, os_language),
    TVK_TEXT_FIELD(DeviceInfo, os_country),
    TVK_TEXT_FIELD(DeviceInfo, os_updatetitle),
    TVK_TEXT_FIELD(DeviceInfo, os_updatedescription),
    TVK_TEXT_FIELD(DeviceInfo, device_info_datetime, false),
    TVK_TEXT_FIELD(DeviceInfo, device_path),
    TVK_TEXT_FIELD(DeviceInfo, device_subscription),
    TVK_TEXT_FIELD(DeviceInfo, device_extensionkeyvalue, false),
};

inline constexpr TextField<RegionInfo> kRegionInfoFields[] = {
    TVK_TEXT_FIELD(RegionInfo, region_name),   TVK_TEXT_FIELD(RegionInfo, country_name),
    TVK_TEXT_FIELD(RegionInfo, country_code),  TVK_TEXT_FIELD(RegionInfo, language_name),
    TVK_TEXT_FIELD(RegionInfo, language_code), TVK_TEXT_FIELD(RegionInfo, region_info_datetime, false),
};

inline constexpr TextField<TVKInfo> kTvkInfoFields[] = {
    TVK_TEXT_FIELD(TVKInfo, tvk_key),  TVK_TEXT_FIELD(TVKInfo, tvk_channel),
    TVK_TEXT_FIELD(TVKInfo, tvk_id),   TVK_TEXT_FIELD(TVKInfo, tvk_version),
    TVK_TEXT_FIELD(TVKInfo, tvk_name), TVK_TEXT_FIELD(TVKInfo, tvk_datetime, false),
};

inline constexpr TextField<DeviceContext> kDeviceContextFields[] = {
    TVK_TEXT_FIELD(DeviceContext, device_context_id, false),
    TVK_TEXT_FIELD(DeviceContext, device_context_datetime, false),
    TVK_TEXT_FIELD(DeviceContext, schema_ver),
    TVK_TEXT_FIELD(DeviceContext, source, false),
    TVK_TEXT_FIELD(DeviceContext, source_component, false),
};

#undef TVK_TEXT_FIELD

}  // namespace TVK

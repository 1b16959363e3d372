// The records that the component writes. Plain values: copyable, comparable, without thread rules of their own.
//
// All fields are wide texts; an empty text means that the fact is not known. Times are record times
// (client/text/record_time.h), ids are upper-case GUID texts.
#pragma once

#include <map>
#include <string>

#include "tvk/record_field.h"

/// Item data: key to value. The keys, units and meanings stand in docs/records.md.
using ItemData = std::map<std::wstring, std::wstring>;

/// What every record says of its form and origin.
class SchemaInfo {
  TVK_RECORD_FIELD(schema_ver);
  TVK_RECORD_FIELD(source);            ///< Topic, "tvk/cpu".
  TVK_RECORD_FIELD(source_component);  ///< Client id, or "tvk/devicecontext".

 public:
  bool operator==(const SchemaInfo&) const = default;
};

/// One observation.
class ItemEvent : public SchemaInfo {
  TVK_RECORD_FIELD(dataset_id);
  TVK_RECORD_FIELD(dataset_name);
  TVK_RECORD_FIELD(dataset_context_id);
  TVK_RECORD_FIELD(device_context_id);
  TVK_RECORD_FIELD(item_id);
  TVK_RECORD_FIELD(item_name);
  TVK_RECORD_FIELD(item_time);
  TVK_RECORD_FIELD(item_context_id);

 public:
  const ItemData& item_data() const noexcept { return item_data_; }
  void set_item_data(ItemData data) { item_data_ = std::move(data); }
  bool operator==(const ItemEvent&) const = default;

 private:
  ItemData item_data_;
};

/// The description of an observed object of a dataset.
class DatasetContext : public SchemaInfo {
  TVK_RECORD_FIELD(dataset_context_id);
  TVK_RECORD_FIELD(dataset_context_datetime);
  TVK_RECORD_FIELD(dataset_id);
  TVK_RECORD_FIELD(dataset_name);
  TVK_RECORD_FIELD(dataset_type);
  TVK_RECORD_FIELD(device_context_id);

 public:
  const ItemData& item_data() const noexcept { return item_data_; }
  void set_item_data(ItemData data) { item_data_ = std::move(data); }
  bool operator==(const DatasetContext&) const = default;

 private:
  ItemData item_data_;
};

class DeviceInfo {
  TVK_RECORD_FIELD(device_id);
  TVK_RECORD_FIELD(device_id2);
  TVK_RECORD_FIELD(device_name);
  TVK_RECORD_FIELD(device_manufacturer);
  TVK_RECORD_FIELD(device_brand);
  TVK_RECORD_FIELD(device_subbrand);
  TVK_RECORD_FIELD(device_family);
  TVK_RECORD_FIELD(device_modeltype);
  TVK_RECORD_FIELD(device_enclosuretype);
  TVK_RECORD_FIELD(device_biosversion);
  TVK_RECORD_FIELD(device_ecversion);
  TVK_RECORD_FIELD(device_smbiosversion);
  TVK_RECORD_FIELD(os_name);
  TVK_RECORD_FIELD(os_version);
  TVK_RECORD_FIELD(os_language);
  TVK_RECORD_FIELD(os_country);
  TVK_RECORD_FIELD(os_updatetitle);
  TVK_RECORD_FIELD(os_updatedescription);
  TVK_RECORD_FIELD(device_info_datetime);
  TVK_RECORD_FIELD(device_path);
  TVK_RECORD_FIELD(device_subscription);
  TVK_RECORD_FIELD(device_extensionkeyvalue);

 public:
  bool operator==(const DeviceInfo&) const = default;
};

class RegionInfo {
  TVK_RECORD_FIELD(region_name);
  TVK_RECORD_FIELD(country_name);
  TVK_RECORD_FIELD(country_code);
  TVK_RECORD_FIELD(language_name);
  TVK_RECORD_FIELD(language_code);
  TVK_RECORD_FIELD(region_info_datetime);

 public:
  bool operator==(const RegionInfo&) const = default;
};

class TVKInfo {
  TVK_RECORD_FIELD(tvk_key);
  TVK_RECORD_FIELD(tvk_channel);
  TVK_RECORD_FIELD(tvk_id);
  TVK_RECORD_FIELD(tvk_version);
  TVK_RECORD_FIELD(tvk_name);
  TVK_RECORD_FIELD(tvk_datetime);

 public:
  bool operator==(const TVKInfo&) const = default;
};

/// The machine, its system, its region and the client at one time.
class DeviceContext : public SchemaInfo {
  TVK_RECORD_FIELD(device_context_id);
  TVK_RECORD_FIELD(device_context_datetime);

 public:
  DeviceInfo& device_info() noexcept { return device_info_; }
  const DeviceInfo& device_info() const noexcept { return device_info_; }
  RegionInfo& region_info() noexcept { return region_info_; }
  const RegionInfo& region_info() const noexcept { return region_info_; }
  TVKInfo& tvk_info() noexcept { return tvk_info_; }
  const TVKInfo& tvk_info() const noexcept { return tvk_info_; }
  bool operator==(const DeviceContext&) const = default;

 private:
  DeviceInfo device_info_;
  RegionInfo region_info_;
  TVKInfo tvk_info_;
};

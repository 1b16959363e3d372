#include "client/records/record_json.h"

#include <json/json.h>

#include <memory>
#include <span>

#include "client/records/record_fields.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr int kDeepestJson = 8;  // a record has two levels

// Writes one object, key by key in the order of the calls, since Json::Value would sort them.
class ObjectWriter {
 public:
  explicit ObjectWriter(std::string& out) : out_(out) { out_ += '{'; }
  ObjectWriter(const ObjectWriter&) = delete;
  ObjectWriter& operator=(const ObjectWriter&) = delete;
  ~ObjectWriter() = default;

  /// The end of the object. Not left to a destructor: there may be no memory for it.
  void End() { out_ += '}'; }

  void Key(std::string_view key) {
    if (!first_) out_ += ',';
    first_ = false;
    Quote(key);
    out_ += ':';
  }
  void Text(std::string_view key, const std::wstring& value) {
    Key(key);
    Quote(String::UTF16ToUTF8(value));
  }
  template <typename Record>
  void Fields(const Record& record, std::span<const TextField<Record>> fields) {
    for (const TextField<Record>& field : fields) {
      const std::wstring& value = (record.*field.get)();
      if (!value.empty()) Text(field.key, value);
    }
  }
  void Data(const ItemData& data) {
    for (const auto& [key, value] : data)
      Text(String::UTF16ToUTF8(key), value);
  }

 private:
  void Quote(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out_ += '"';
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
        out_ += '\\';
        out_ += c;
      } else if (c == '\n') {
        out_ += "\\n";
      } else if (byte < 0x20) {
        out_ += "\\u00";
        out_ += kHex[byte >> 4];
        out_ += kHex[byte & 15];
      } else {
        out_ += c;
      }
    }
    out_ += '"';
  }

  std::string& out_;
  bool first_ = true;
};

template <typename Record>
std::string ToJsonWithData(const Record& record, std::span<const TextField<Record>> fields) {
  std::string json;
  ObjectWriter object(json);
  object.Fields(record, fields);
  if (!record.item_data().empty()) {
    object.Key("item_data");
    ObjectWriter data(json);
    data.Data(record.item_data());
    data.End();
  }
  object.End();
  return json;
}

std::optional<Json::Value> ParseObject(std::string_view json) {
  if (json.size() > kLongestRecordJson) return std::nullopt;
  // Never destroyed, as the empty object below: records are read until the process ends.
  static const auto* const kStrict = [] {
    auto* const builder = new Json::CharReaderBuilder;
    Json::CharReaderBuilder::strictMode(&builder->settings_);
    (*builder)["stackLimit"] = kDeepestJson;
    return builder;
  }();
  const std::unique_ptr<Json::CharReader> reader(kStrict->newCharReader());
  Json::Value value;
  try {
    if (!reader->parse(json.data(), json.data() + json.size(), &value, nullptr) || !value.isObject()) {
      return std::nullopt;
    }
  } catch (const Json::Exception&) {  // jsoncpp reports nesting beyond the limit so
    return std::nullopt;
  }
  return value;
}

// False when a key of `fields` holds something else than a text.
template <typename Record>
bool ReadFields(const Json::Value& object, std::span<const TextField<Record>> fields, Record& record) {
  for (const TextField<Record>& field : fields) {
    const Json::Value& value = object[field.key];
    if (value.isNull()) continue;
    if (!value.isString()) return false;
    (record.*field.set)(String::UTF8ToUTF16(value.asString()));
  }
  return true;
}

// The object below `key`, an empty one when there is none, null when something else stands there.
const Json::Value* Member(const Json::Value& object, const char* key) {
  static const auto* const kEmpty = new Json::Value(Json::objectValue);
  const Json::Value& member = object[key];
  if (member.isNull()) return kEmpty;
  return member.isObject() ? &member : nullptr;
}

template <typename Record>
std::optional<Record> FromJsonWithData(std::string_view json, std::span<const TextField<Record>> fields) {
  const std::optional<Json::Value> object = ParseObject(json);
  Record record;
  if (!object || !ReadFields(*object, fields, record)) return std::nullopt;
  const Json::Value* data = Member(*object, "item_data");
  if (data == nullptr) return std::nullopt;
  ItemData texts;
  for (auto entry = data->begin(); entry != data->end(); ++entry) {
    if (!entry->isString()) return std::nullopt;
    texts[String::UTF8ToUTF16(entry.name())] = String::UTF8ToUTF16(entry->asString());
  }
  record.set_item_data(std::move(texts));
  return record;
}

}  // namespace

std::string ToJson(const ItemEvent& record) {
  return ToJsonWithData<ItemEvent>(record, kItemEventFields);
}

std::string ToJson(const DatasetContext& record) {
  return ToJsonWithData<DatasetContext>(record, kDatasetContextFields);
}

std::string ToJson(const DeviceContext& record) {
  std::string json;
  ObjectWriter object(json);
  object.Fields<DeviceContext>(record, kDeviceContextFields);
  const auto part = [&]<typename Part>(const char* key, const Part& value, std::span<const TextField<Part>> fields) {
    if (value == Part{}) return;
    object.Key(key);
    ObjectWriter inner(json);
    inner.Fields(value, fields);
    inner.End();
  };
  part.operator()<DeviceInfo>("device_info", record.device_info(), kDeviceInfoFields);
  part.operator()<RegionInfo>("region_info", record.region_info(), kRegionInfoFields);
  part.operator()<TVKInfo>("tvk_info", record.tvk_info(), kTvkInfoFields);
  object.End();
  return json;
}

std::string ToJson(const ItemData& data) {
  std::string json;
  ObjectWriter object(json);
  object.Data(data);
  object.End();
  return json;
}

std::optional<ItemEvent> ItemEventFromJson(std::string_view json) {
  return FromJsonWithData<ItemEvent>(json, kItemEventFields);
}

std::optional<DatasetContext> DatasetContextFromJson(std::string_view json) {
  return FromJsonWithData<DatasetContext>(json, kDatasetContextFields);
}

std::optional<DeviceContext> DeviceContextFromJson(std::string_view json) {
  const std::optional<Json::Value> object = ParseObject(json);
  if (!object) return std::nullopt;
  const Json::Value* device = Member(*object, "device_info");
  const Json::Value* region = Member(*object, "region_info");
  const Json::Value* tvk = Member(*object, "tvk_info");
  DeviceContext record;
  if (device == nullptr || region == nullptr || tvk == nullptr ||
      !ReadFields<DeviceContext>(*object, kDeviceContextFields, record) ||
      !ReadFields<DeviceInfo>(*device, kDeviceInfoFields, record.device_info()) ||
      !ReadFields<RegionInfo>(*region, kRegionInfoFields, record.region_info()) ||
      !ReadFields<TVKInfo>(*tvk, kTvkInfoFields, record.tvk_info())) {
    return std::nullopt;
  }
  return record;
}

}  // namespace TVK

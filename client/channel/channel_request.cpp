#include "client/channel/channel_request.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>

#include "client/channel/frame.h"
#include "client/policy/object_reader.h"
#include "client/policy/strict_json.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::array<std::string_view, 9> kWishes = {"policy", "client policy", "context", "init",  "item",
                                                     "status", "event",         "erase",   "report"};

// Kept: making one takes as long as writing a message. Never destroyed: callers are answered until the process ends.
std::string Write(const Json::Value& value) {
  static const auto* const builder = [] {
    auto* const made = new Json::StreamWriterBuilder;
    (*made)["indentation"] = "";
    (*made)["emitUTF8"] = true;
    return made;
  }();
  return Json::writeString(*builder, value);
}

Json::Value ToValue(const ItemData& data) {
  Json::Value value(Json::objectValue);
  for (const auto& [key, text] : data)
    value[String::UTF16ToUTF8(key)] = String::UTF16ToUTF8(text);
  return value;
}

void AddText(Json::Value& value, const char* key, const std::wstring& text) {
  if (!text.empty()) value[key] = String::UTF16ToUTF8(text);
}

// A number, as a text: jsoncpp reads numbers of other forms, too.
void ReadSeconds(ObjectReader& reader, const char* key, std::optional<std::int64_t>& seconds) {
  std::wstring text;
  reader.Text(key, Presence::kOptional, text);
  if (text.empty()) return;
  const std::string digits = String::UTF16ToUTF8(text);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size() || number < 0) {
    reader.Refuse(key, "the text is no count of seconds");
  } else {
    seconds = number;
  }
}

// Everything goes only where the request says so: an empty text is no "every dataset".
void CheckErasure(ObjectReader& reader, const Json::Value& root, const ChannelRequest& request) {
  const bool named = root.isMember("dataset") || root.isMember("before");
  if (root.isMember("dataset") && request.dataset_id.empty()) reader.Refuse("dataset", "the text is empty");
  if (root.isMember("before") && !request.before_seconds) reader.Refuse("before", "the text is no count of seconds");
  if (request.all == named) reader.Refuse("all", "an erasure is of all, or has conditions");
}

void ReadName(ObjectReader& reader, const char* key, std::wstring& name) {
  reader.Text(key, Presence::kOptional, name);
  if (name.size() > kLongestName) reader.Refuse(key, "the text is too long");
}

void ReadData(ObjectReader& reader, const char* key, ItemData& data) {
  reader.Texts(key, data);
  const bool too_long = std::ranges::any_of(data, [](const auto& entry) {
    return entry.first.empty() || entry.first.size() > kLongestName || entry.second.size() > kLongestValue;
  });
  if (too_long || data.size() > kMostItemValues) reader.Refuse(key, "too many values, or one that is too long");
}

std::vector<ObservedDevice> ReadDevices(ObjectReader& parent, ProblemList& problems) {
  std::vector<ObservedDevice> devices;
  const Json::Value* const list = parent.List("devices", Presence::kOptional);
  if (list == nullptr) return devices;
  if (list->size() > kMostDevices) {
    parent.Refuse("devices", "too many devices");
    return devices;
  }
  for (const Json::Value& each : *list) {
    if (!HasType(each, Json::objectValue, "devices", problems)) continue;
    ObservedDevice& device = devices.emplace_back();
    ObjectReader reader(each, "devices", problems);
    ReadName(reader, "key", device.key);
    if (std::ranges::count(devices, device.key, &ObservedDevice::key) > 1) reader.Refuse("key", "there are two of it");
    ReadData(reader, "facts", device.facts);
    reader.ReportUnknownKeys();
  }
  return devices;
}

}  // namespace

std::string_view WishName(ChannelWish wish) {
  return kWishes[static_cast<std::size_t>(wish)];
}

std::string GreetingToJson() {
  Json::Value value;
  value["version"] = kChannelVersion;
  return Write(value);
}

std::optional<int> GreetingFromJson(std::string_view json) {
  ProblemList problems;
  const std::optional<Json::Value> root = ReadStrictJson(json, problems);
  if (!root || !(*root)["version"].isInt()) return std::nullopt;
  return (*root)["version"].asInt();
}

std::string ToJson(const ChannelRequest& request) {
  Json::Value value;
  value["wish"] = std::string(WishName(request.wish));
  AddText(value, "dataset", request.dataset_id);
  AddText(value, "item", request.item_name);
  AddText(value, "device", request.device_key);
  if (!request.data.empty()) value["data"] = ToValue(request.data);
  for (const ObservedDevice& device : request.devices) {
    Json::Value& entry = value["devices"].append(Json::objectValue);
    AddText(entry, "key", device.key);
    entry["facts"] = ToValue(device.facts);
  }
  if (request.new_context_needed) value["anew"] = true;
  if (request.all) value["all"] = true;
  if (request.before_seconds) value["before"] = std::to_string(*request.before_seconds);
  if (request.since_seconds) value["since"] = std::to_string(*request.since_seconds);
  return Write(value);
}

std::optional<ChannelRequest> RequestFromJson(std::string_view json, std::string& problem) {
  ProblemList problems;
  ChannelRequest request;
  if (const std::optional<Json::Value> root = ReadStrictJson(json, problems)) {
    ObjectReader reader(*root, "", problems);
    std::wstring wish;
    reader.Text("wish", Presence::kRequired, wish);
    const auto* const found = std::ranges::find(kWishes, String::UTF16ToUTF8(wish));
    if (found == kWishes.end()) {
      reader.Refuse("wish", "there is no such wish");
    } else {
      request.wish = static_cast<ChannelWish>(found - kWishes.begin());
    }
    ReadName(reader, "dataset", request.dataset_id);
    ReadName(reader, "item", request.item_name);
    ReadName(reader, "device", request.device_key);
    ReadData(reader, "data", request.data);
    request.devices = ReadDevices(reader, problems);
    reader.Flag("anew", request.new_context_needed);
    ReadSeconds(reader, "before", request.before_seconds);
    ReadSeconds(reader, "since", request.since_seconds);
    reader.Flag("all", request.all);
    if (request.wish == ChannelWish::kErase) CheckErasure(reader, *root, request);
    reader.ReportUnknownKeys();
  }
  if (problems.count() == 0) return request;
  const PolicyProblem first = problems.Take().front();
  problem = first.path.empty() ? first.message : first.path + ": " + first.message;
  return std::nullopt;
}

std::string ToJson(const ChannelAnswer& answer) {
  Json::Value value;
  value["result"] = answer.result;
  if (!answer.reason.empty()) value["reason"] = answer.reason;
  if (!answer.body.empty()) value["body"] = answer.body;
  return Write(value);
}

std::optional<ChannelAnswer> AnswerFromJson(std::string_view json) {
  static const auto* const builder = [] {
    auto* const made = new Json::CharReaderBuilder;
    Json::CharReaderBuilder::strictMode(&made->settings_);
    return made;
  }();
  const std::unique_ptr<Json::CharReader> reader(builder->newCharReader());
  Json::Value root;
  // The service's own words: what it sends is looked at for its form alone.
  try {
    if (!reader->parse(json.data(), json.data() + json.size(), &root, nullptr) || !root.isObject()) return std::nullopt;
  } catch (const Json::Exception&) {  // nested too deep
    return std::nullopt;
  }
  const Json::Value result = root.get("result", Json::Value());
  const Json::Value reason = root.get("reason", "");
  const Json::Value body = root.get("body", "");
  if (!result.isInt() || !reason.isString() || !body.isString()) return std::nullopt;
  return ChannelAnswer{.result = result.asInt(), .reason = reason.asString(), .body = body.asString()};
}

}  // namespace TVK

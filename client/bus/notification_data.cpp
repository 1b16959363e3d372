#include "client/bus/notification_data.h"

#include <json/json.h>

#include <memory>

#include "client/text/string.h"

using TVK::String;

TVKNotificationData::TVKNotificationData(int topic_id, int event_state, std::wstring payload, bool kvq)
    : topic_id_(topic_id), event_state_(event_state), payload_(std::move(payload)), kvq_(kvq) {}

bool TVKNotificationData::deserializePayloadForTvkPolicy(const std::wstring& payload) {
  device_path_.clear();
  device_subscription_.clear();
  device_path_change_ = false;

  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = 16;
  const std::string text = String::UTF16ToUTF8(payload);
  Json::Value value;
  try {
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr) || !value.isObject()) return false;
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
  const Json::Value& path = value["devicePath"];
  const Json::Value& subscription = value["deviceSubscription"];
  const Json::Value& change = value["isDevicePathChange"];
  if ((!path.isNull() && !path.isString()) || (!subscription.isNull() && !subscription.isString()) ||
      (!change.isNull() && !change.isBool())) {
    return false;
  }
  device_path_ = String::UTF8ToUTF16(path.asString());
  device_subscription_ = String::UTF8ToUTF16(subscription.asString());
  device_path_change_ = change.isBool() && change.asBool();
  return true;
}

namespace TVK {

std::wstring MakeTvkPolicyPayload(const std::wstring& device_path, const std::wstring& device_subscription,
                                  bool device_path_change) {
  Json::Value value(Json::objectValue);
  value["devicePath"] = String::UTF16ToUTF8(device_path);
  value["deviceSubscription"] = String::UTF16ToUTF8(device_subscription);
  value["isDevicePathChange"] = device_path_change;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return String::UTF8ToUTF16(Json::writeString(builder, value));
}

}  // namespace TVK

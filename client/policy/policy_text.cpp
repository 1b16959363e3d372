#include "client/policy/policy_text.h"

#include <json/writer.h>

#include "client/text/string.h"

namespace TVK {
namespace {

std::string Write(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

void AddText(Json::Value& object, const char* key, const std::wstring& text) {
  if (!text.empty()) object[key] = String::UTF16ToUTF8(text);
}

void AddNames(Json::Value& object, const char* key, const std::vector<std::wstring>& names) {
  for (const std::wstring& name : names)
    object[key].append(String::UTF16ToUTF8(name));
}

void AddFilter(Json::Value& parent, const ApplicabilityFilter& filter) {
  Json::Value object(Json::objectValue);
  AddNames(object, "models", filter.models);
  AddNames(object, "manufacturers", filter.manufacturers);
  AddNames(object, "brands", filter.brands);
  AddNames(object, "osNames", filter.os_names);
  AddText(object, "osVersionMin", filter.os_version_min);
  AddText(object, "osVersionMax", filter.os_version_max);
  if (!object.empty()) parent["applicability"] = std::move(object);
}

void AddSettings(Json::Value& parent, const std::map<std::wstring, std::wstring>& settings) {
  for (const auto& [key, value] : settings)
    parent["settings"][String::UTF16ToUTF8(key)] = String::UTF16ToUTF8(value);
}

}  // namespace

std::string ToJson(const TelemetryPolicy& policy) {
  Json::Value document(Json::objectValue);
  document["telemetryScope"] = String::UTF16ToUTF8(policy.telemetry_scope);
  AddFilter(document, policy.applicability);
  AddSettings(document, policy.settings);
  document["datasets"] = Json::arrayValue;
  for (const DataSet& dataset : policy.datasets) {
    Json::Value& entry = document["datasets"].append(Json::objectValue);
    entry["id"] = String::UTF16ToUTF8(dataset.id);
    entry["name"] = String::UTF16ToUTF8(dataset.name);
    entry["enabled"] = dataset.enabled;
    AddFilter(entry, dataset.applicability);
    AddSettings(entry, dataset.settings);
  }
  return Write(document);
}

std::string ToJson(const TvkPolicy& policy) {
  Json::Value document(Json::objectValue);
  AddText(document, "devicePath", policy.device_path);
  AddText(document, "deviceSubscription", policy.device_subscription);
  return Write(document);
}

}  // namespace TVK

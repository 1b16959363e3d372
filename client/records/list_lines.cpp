#include "client/records/list_lines.h"

#include <json/json.h>

#include <memory>

namespace TVK {
namespace {

constexpr int kDeepest = 8;

std::string TextOf(const Json::Value& value) {
  if (value.isString()) return value.asString();
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

std::string LineOf(const Json::Value& element) {
  if (!element.isObject()) return TextOf(element);
  std::string line;
  for (auto member = element.begin(); member != element.end(); ++member)
    line += (line.empty() ? "" : ", ") + member.name() + '=' + TextOf(*member);
  return line;
}

}  // namespace

std::optional<std::vector<std::string>> ListLines(std::string_view value) {
  if (!value.starts_with('[')) return std::nullopt;
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = kDeepest;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value list;
  try {
    if (!reader->parse(value.data(), value.data() + value.size(), &list, nullptr)) return std::nullopt;
  } catch (const Json::Exception&) {  // jsoncpp reports nesting beyond the limit so
    return std::nullopt;
  }
  if (!list.isArray() || list.empty()) return std::nullopt;
  std::vector<std::string> lines;
  for (const Json::Value& element : list)
    lines.push_back(LineOf(element));
  return lines;
}

}  // namespace TVK

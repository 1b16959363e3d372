#include "client/policy/object_reader.h"

#include "client/text/nearest_text.h"
#include "client/text/string.h"

namespace TVK {

namespace {

constexpr std::string_view kUnknownKey = "the key is unknown and has no effect";

std::string_view TypeName(Json::ValueType type) {
  switch (type) {
    case Json::nullValue:
      return "null";
    case Json::intValue:
    case Json::uintValue:
    case Json::realValue:
      return "a number";
    case Json::stringValue:
      return "a text";
    case Json::booleanValue:
      return "true or false";
    case Json::arrayValue:
      return "a list";
    case Json::objectValue:
      return "an object";
  }
  return "something else";
}

// Ids, names and values are printed and logged, and escapes in the document can make what UTF-8 cannot hold.
bool IsCleanText(const std::string& text, std::ptrdiff_t offset, std::string_view path, ProblemList& problems) {
  const bool control = HoldsControlCharacter(text);
  if (control) problems.Add(offset, path, "the text holds a control character", true);
  const bool broken = FindInvalidUtf8(text) != std::string::npos;
  if (broken) problems.Add(offset, path, "the text holds half of a surrogate pair", true);
  return !control && !broken;
}

}  // namespace

bool HasType(const Json::Value& value, Json::ValueType type, std::string_view path, ProblemList& problems) {
  if (value.type() == type) return true;
  std::string message(TypeName(type));
  message.append(" is expected, not ").append(TypeName(value.type()));
  problems.Add(value.getOffsetStart(), path, message, true);
  return false;
}

std::string ObjectReader::PathOf(std::string_view key) const {
  return path_.empty() ? Clip(key) : path_ + "." + Clip(key);
}

void ObjectReader::Refuse(std::string_view key, std::string_view message) {
  const Json::Value* member = object_.find(key.data(), key.data() + key.size());
  problems_.Add((member != nullptr ? *member : object_).getOffsetStart(), PathOf(key), message, true);
}

const Json::Value* ObjectReader::Member(const char* key, Json::ValueType type, Presence presence) {
  const std::string name(key);
  known_.insert(name);
  const Json::Value* member = object_.find(name.data(), name.data() + name.size());
  if (member == nullptr) {
    if (presence == Presence::kRequired) Refuse(name, "the key is missing");
    return nullptr;
  }
  return HasType(*member, type, PathOf(name), problems_) ? member : nullptr;
}

void ObjectReader::Text(const char* key, Presence presence, std::wstring& text) {
  const Json::Value* member = Member(key, Json::stringValue, presence);
  if (member == nullptr) return;
  const std::string value = member->asString();
  if (IsCleanText(value, member->getOffsetStart(), PathOf(key), problems_)) text = String::UTF8ToUTF16(value);
}

void ObjectReader::Name(const char* key, Presence presence, std::wstring& text) {
  const Json::Value* member = Member(key, Json::stringValue, presence);
  if (member == nullptr) return;
  if (member->asString().empty()) {
    Refuse(key, "the text must not be empty");
  } else {
    Text(key, presence, text);
  }
}

void ObjectReader::Flag(const char* key, bool& flag) {
  if (const Json::Value* member = Member(key, Json::booleanValue, Presence::kOptional)) flag = member->asBool();
}

void ObjectReader::Names(const char* key, std::vector<std::wstring>& names) {
  const Json::Value* list = List(key, Presence::kOptional);
  if (list == nullptr) return;
  for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
    const Json::Value& item = (*list)[i];
    const std::string path = PathOf(key) + "[" + std::to_string(i) + "]";
    if (!HasType(item, Json::stringValue, path, problems_)) continue;
    const std::string text = item.asString();
    if (text.empty()) problems_.Add(item.getOffsetStart(), path, "the text must not be empty", true);
    if (IsCleanText(text, item.getOffsetStart(), path, problems_)) names.push_back(String::UTF8ToUTF16(text));
  }
}

void ObjectReader::Texts(const char* key, std::map<std::wstring, std::wstring>& texts,
                         const std::set<std::string>* known) {
  const Json::Value* object = Object(key);
  if (object == nullptr) return;
  for (const std::string& name : object->getMemberNames()) {
    const Json::Value& item = (*object)[name];
    const std::string path = PathOf(key) + "." + Clip(name);
    if (!IsCleanText(name, item.getOffsetStart(), path, problems_)) continue;
    if (known != nullptr && !known->contains(name)) problems_.Add(item.getOffsetStart(), path, kUnknownKey, false);
    if (!HasType(item, Json::stringValue, path, problems_)) continue;
    const std::string text = item.asString();
    if (!IsCleanText(text, item.getOffsetStart(), path, problems_)) continue;
    texts[String::UTF8ToUTF16(name)] = String::UTF8ToUTF16(text);
  }
}

const Json::Value* ObjectReader::Object(const char* key) {
  return Member(key, Json::objectValue, Presence::kOptional);
}

const Json::Value* ObjectReader::List(const char* key, Presence presence) {
  return Member(key, Json::arrayValue, presence);
}

std::string ObjectReader::HintOf(const std::string& unknown_key) const {
  constexpr std::size_t kMost = 100;  // hints; a document may be full of unknown keys, and each hint takes its time
  if (problems_.count() >= kMost) return {};
  std::vector<std::wstring> known;
  for (const std::string& key : known_)
    known.push_back(String::UTF8ToUTF16(key));
  return String::UTF16ToUTF8(DidYouMean(String::UTF8ToUTF16(unknown_key), known));
}

void ObjectReader::ReportUnknownKeys() {
  for (const std::string& name : object_.getMemberNames()) {
    if (known_.contains(name)) continue;
    problems_.Add(object_[name].getOffsetStart(), PathOf(name), std::string(kUnknownKey) + HintOf(name), false);
  }
}

}  // namespace TVK

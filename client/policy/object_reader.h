// Takes the members out of one JSON object, and reports what is missing, of the wrong type or unknown; internal to the
// policy library. One thread.
#pragma once

#include <json/value.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/policy/problem_list.h"

namespace TVK {

enum class Presence { kOptional, kRequired };

class ObjectReader {
 public:
  /// `object` is a JSON object; it and `problems` must outlive the reader. `path` is empty for the document itself.
  ObjectReader(const Json::Value& object, std::string path, ProblemList& problems)
      : object_(object), path_(std::move(path)), problems_(problems) {}

  /// Each reads the member `key`. When it is absent or wrong the output stays untouched, and the problem is added.
  void Text(const char* key, Presence presence, std::wstring& text);
  /// A text that is not empty.
  void Name(const char* key, Presence presence, std::wstring& text);
  void Flag(const char* key, bool& flag);
  void Names(const char* key, std::vector<std::wstring>& names);
  /// `known`: the members that mean something; every other one is read, and reported as unknown. Null: any may.
  void Texts(const char* key, std::map<std::wstring, std::wstring>& texts,
             const std::set<std::string>* known = nullptr);
  /// Null when the member is absent or wrong.
  const Json::Value* Object(const char* key);
  const Json::Value* List(const char* key, Presence presence);

  /// Reports each member that nothing above asked for; to be called last.
  void ReportUnknownKeys();

  std::string PathOf(std::string_view key) const;
  /// Adds a fatal problem about the member `key`, or about the object when it has none.
  void Refuse(std::string_view key, std::string_view message);

 private:
  /// What may have been meant, for people; empty: nothing that is known.
  std::string HintOf(const std::string& unknown_key) const;
  const Json::Value* Member(const char* key, Json::ValueType type, Presence presence);

  const Json::Value& object_;
  const std::string path_;
  ProblemList& problems_;
  std::set<std::string> known_;
};

/// True when `value` is of `type`; else a fatal problem is added at `path`.
bool HasType(const Json::Value& value, Json::ValueType type, std::string_view path, ProblemList& problems);

}  // namespace TVK

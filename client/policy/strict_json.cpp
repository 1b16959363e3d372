#include "client/policy/strict_json.h"

#include <json/reader.h>

#include <algorithm>
#include <memory>
#include <string>

#include "client/policy/policy_document.h"
#include "client/text/string.h"

namespace TVK {

namespace {

constexpr int kDeepest = 32;
constexpr std::size_t kLongestMessage = 160;

std::string LineAndColumn(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const std::size_t line_start = before.rfind('\n') + 1;  // npos + 1 is 0: the first line
  return "line " + std::to_string(std::ranges::count(before, '\n') + 1) + ", column " +
         std::to_string(offset - line_start + 1);
}

// What is wrong with a text at one place of it; nothing at npos.
struct Flaw {
  std::size_t at = std::string_view::npos;
  std::string message;
};

// The first thing that the reader takes although it must not, or refuses without a place: it passes comments inside
// objects and lists over even when it is told to allow none, and throws when it is too deep.
Flaw FindFlawOfStructure(std::string_view text) {
  bool in_text = false;
  int depth = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '"') {
      in_text = !in_text;
    } else if (in_text) {
      if (c == '\\') ++at;
    } else if (c == '/') {
      return {at, "JSON has no comments"};
    } else if ((c == '[' || c == '{') && ++depth > kDeepest) {
      return {at, "the document is nested deeper than " + std::to_string(kDeepest) + " levels"};
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return {};
}

// The first flaw that the reader does not find by itself, or that it finds nowhere.
Flaw FindFlaw(std::string_view text) {
  // It passes malformed bytes on as they are, and takes a NUL for the end of the text.
  if (const std::size_t bad = FindInvalidUtf8(text); bad != text.npos) {
    return {bad, "the text is not well-formed UTF-8"};
  }
  if (const std::size_t nul = text.find('\0'); nul != text.npos) return {nul, "the text holds a NUL byte"};
  return FindFlawOfStructure(text);
}

// The reader gives its errors as text only: "* Line 1, Column 2\n  Message.\n", one after the other. What follows the
// first is mostly its consequence.
void AddSyntaxProblem(const std::string& errors, ProblemList& problems) {
  constexpr std::string_view kStart = "* Line ";
  const std::size_t first_end = errors.find('\n');
  const std::size_t message_start = errors.find_first_not_of(' ', first_end + 1);
  if (!errors.starts_with(kStart) || first_end == std::string::npos || message_start == std::string::npos) {
    problems.Add(0, "", "the text is no JSON: " + Clip(errors, kLongestMessage), true);
    return;
  }
  std::string path = "line " + errors.substr(kStart.size(), first_end - kStart.size());
  std::ranges::replace(path, 'C', 'c');
  std::string message = errors.substr(message_start, errors.find('\n', message_start) - message_start);
  if (message.ends_with('.')) message.pop_back();
  problems.Add(0, path, Clip(message, kLongestMessage), true);
}

}  // namespace

std::optional<Json::Value> ReadStrictJson(std::string_view text, ProblemList& problems) {
  if (text.size() > kPolicySizeLimit) {
    problems.Add(0, "", "the document is longer than " + std::to_string(kPolicySizeLimit) + " bytes", true);
    return std::nullopt;
  }
  if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
    problems.Add(0, "", "the document is empty", true);
    return std::nullopt;
  }
  if (const Flaw flaw = FindFlaw(text); flaw.at != text.npos) {
    problems.Add(0, LineAndColumn(text, flaw.at), flaw.message, true);
    return std::nullopt;
  }
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["collectComments"] = false;
  builder["stackLimit"] = kDeepest + 1;  // it counts what stands in the innermost object, too
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors)) {
      AddSyntaxProblem(errors, problems);
      return std::nullopt;
    }
  } catch (const Json::Exception& failure) {
    AddSyntaxProblem(failure.what(), problems);
    return std::nullopt;
  }
  if (!root.isObject()) {
    problems.Add(0, "", "an object is expected", true);
    return std::nullopt;
  }
  return root;
}

}  // namespace TVK

#include "platform/linux/system_text.h"

#include <algorithm>

#include "platform/text_scan.h"

namespace platform {
namespace {

// The locale of the process must not decide what a letter is.
bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsName(std::string_view text) {
  return !text.empty() && !IsDigit(text.front()) &&
         std::all_of(text.begin(), text.end(), [](char c) { return IsLetter(c) || IsDigit(c) || c == '_'; });
}

/// The value as a shell would take it; empty when a quote does not end.
std::optional<std::string> Unquote(std::string_view text) {
  std::string value;
  char quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (quote != 0 && c == quote) {
      quote = 0;
    } else if (c == '\\' && quote != '\'' && i + 1 < text.size()) {
      const char next = text[++i];
      // Between double quotes a backslash is itself unless one of these follows.
      if (quote == '"' && std::string_view("$\"\\`").find(next) == std::string_view::npos) value += '\\';
      value += next;
    } else {
      value += c;
    }
  }
  if (quote != 0) return std::nullopt;
  return value;
}

}  // namespace

Assignments DecodeAssignments(std::string_view text) {
  Assignments assignments;
  while (!text.empty()) {
    const std::string_view line = TrimBlanks(TakeLine(text));
    const auto equals = line.find('=');
    if (line.starts_with('#') || equals == std::string_view::npos || !IsName(line.substr(0, equals))) continue;
    if (auto value = Unquote(line.substr(equals + 1))) {
      assignments.insert_or_assign(std::string(line.substr(0, equals)), std::move(*value));
    }
  }
  return assignments;
}

std::string FirstValue(const Assignments& assignments, std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names) {
    const auto found = assignments.find(name);
    if (found != assignments.end() && !found->second.empty()) return found->second;
  }
  return {};
}

Locale DecodeLocaleName(std::string_view name) {
  name = name.substr(0, name.find_first_of(".@"));
  const auto underscore = name.find('_');
  const std::string_view language = name.substr(0, underscore);
  if (language.size() < 2 || language.size() > 3 || !std::all_of(language.begin(), language.end(), IsLetter)) return {};
  Locale locale{.tag = std::string(language), .territory = {}};
  if (underscore == std::string_view::npos) return locale;
  const std::string_view territory = name.substr(underscore + 1);
  const bool is_country = territory.size() == 2 && std::all_of(territory.begin(), territory.end(), IsLetter);
  const bool is_area = territory.size() == 3 && std::all_of(territory.begin(), territory.end(), IsDigit);  // "419"
  if (!is_country && !is_area) return {};
  locale.territory = territory;
  locale.tag += '-';
  locale.tag += territory;
  return locale;
}

std::string TimeZoneOfLink(std::string_view target) {
  constexpr std::string_view kFolder = "zoneinfo/";
  const auto at = target.find(kFolder);
  return at == std::string_view::npos ? std::string() : std::string(target.substr(at + kFolder.size()));
}

std::string MachineIdOf(std::string_view text) {
  text = TrimBlanks(text);
  const bool sound = text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
  return sound ? std::string(text) : std::string();
}

std::optional<SessionUser> DecodeSession(std::string_view text) {
  const Assignments session = DecodeAssignments(text);
  const std::string user = FirstValue(session, {"UID"});
  if (!ParseNumber(user) || FirstValue(session, {"ACTIVE"}) != "1" || FirstValue(session, {"CLASS"}) != "user" ||
      FirstValue(session, {"REMOTE"}) == "1") {
    return std::nullopt;
  }
  return SessionUser{user, !FirstValue(session, {"SEAT"}).empty()};
}

}  // namespace platform

#include "client/identity/locale_name.h"

#include <algorithm>

namespace TVK {

namespace {

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsLetters(std::string_view text) {
  return std::ranges::all_of(text, IsLetter);
}
bool IsDigits(std::string_view text) {
  return std::ranges::all_of(text, IsDigit);
}

// Takes the next part off `rest`.
std::string_view TakePart(std::string_view& rest) {
  const std::size_t end = std::min(rest.find('-'), rest.size());
  const std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return part;
}

}  // namespace

std::optional<LocaleParts> SplitLocaleName(std::string_view name) {
  constexpr std::size_t kLongestPart = 8;
  name = name.substr(0, name.find('_'));
  if (name.ends_with('-')) return std::nullopt;
  LocaleParts parts;
  const std::string_view language = TakePart(name);
  if (language.size() < 2 || language.size() > 3 || !IsLetters(language)) return std::nullopt;
  parts.language = language;
  for (bool first = true; !name.empty(); first = false) {
    const std::string_view part = TakePart(name);
    const bool sound = !part.empty() && part.size() <= kLongestPart &&
                       std::ranges::all_of(part, [](char c) { return IsLetter(c) || IsDigit(c); });
    if (!sound) return std::nullopt;
    if (part.size() == 1) break;  // An extension: what follows says nothing about the place.
    if (first && part.size() == 4 && IsLetters(part)) continue;  // a script, "Hans"
    const bool is_territory = (part.size() == 2 && IsLetters(part)) || (part.size() == 3 && IsDigits(part));
    if (is_territory && parts.territory.empty()) parts.territory = part;
  }
  return parts;
}

}  // namespace TVK

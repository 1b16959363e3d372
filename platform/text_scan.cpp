#include "platform/text_scan.h"

#include <algorithm>
#include <charconv>

namespace platform {

std::string_view TrimBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view TakeLine(std::string_view& rest) {
  const auto end = rest.find('\n');
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return line;
}

std::string_view TakeWord(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
  const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
  rest.remove_prefix(word.size());
  return word;
}

std::optional<std::uint64_t> ParseNumber(std::string_view text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

}  // namespace platform

#include "monitors/logs/told_interruptions.h"

#include <charconv>
#include <sstream>

#include "client/text/string.h"

namespace TVK {
namespace {

std::optional<std::uint64_t> NumberOf(const std::wstring& text) {
  const std::string digits = String::UTF16ToUTF8(text);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() && end == digits.data() + digits.size() ? std::optional(number) : std::nullopt;
}

}  // namespace

ToldInterruptions::ToldInterruptions(const std::wstring& kept, const std::wstring& place) : place_(place + L'\n') {
  if (!kept.starts_with(place_)) return;
  std::wistringstream lines(kept.substr(place_.size()));
  for (std::wstring line; std::getline(lines, line);) {
    const std::size_t tab = line.find(L'\t');
    const auto lost = tab == line.npos ? std::nullopt : NumberOf(line.substr(tab + 1));
    if (!lost) {  // a place has lines, too: this one is longer than `place`
      told_.clear();
      return;
    }
    told_[line.substr(0, tab)] = *lost;
  }
}

std::optional<std::uint64_t> ToldInterruptions::Lost(const std::wstring& what) const {
  const auto found = told_.find(what);
  return found == told_.end() ? std::nullopt : std::optional(found->second);
}

std::wstring ToldInterruptions::Text() const {
  std::wstring text = place_;
  for (const auto& [what, lost] : told_)
    text.append(what).append(L"\t").append(std::to_wstring(lost)).append(L"\n");
  return text;
}

}  // namespace TVK

#include "apps/tvkctl/time_text.h"

#include <array>
#include <utility>

namespace tvkctl {

std::wstring FromNow(std::int64_t seconds) {
  if (seconds == 0) return L"now";
  const std::int64_t length = seconds < 0 ? -seconds : seconds;
  std::wstring text = std::to_wstring(length) + L" s";
  // From two of them on: "90 min" says more than "1 h".
  for (const auto& [unit, name] : {std::pair(60, L" min"), {3600, L" h"}, {24 * 3600, L" d"}}) {
    if (length >= 2 * unit) text = std::to_wstring(length / unit) + name;
  }
  return seconds < 0 ? text + L" ago" : L"in " + text;
}

}  // namespace tvkctl

#include "client/text/nearest_text.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "client/text/string.h"

namespace TVK {
namespace {

// Levenshtein's distance, row by row, in which two neighbours that changed places count as one slip.
std::size_t Distance(std::wstring_view a, std::wstring_view b) {
  std::vector<std::size_t> before_last(b.size() + 1);
  std::vector<std::size_t> last = before_last;
  std::vector<std::size_t> row = before_last;
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t exchanged = last[j] + (a[i] == b[j] ? 0 : 1);
      row[j + 1] = std::min({exchanged, row[j] + 1, last[j + 1] + 1});
      const bool swapped = i > 0 && j > 0 && a[i] == b[j - 1] && a[i - 1] == b[j];
      if (swapped) row[j + 1] = std::min(row[j + 1], before_last[j - 1] + 1);
    }
    std::swap(before_last, last);
    std::swap(last, row);
  }
  return last.back();
}

}  // namespace

std::optional<std::wstring> NearestText(std::wstring_view text, const std::vector<std::wstring>& known) {
  constexpr std::size_t kLongest = 64;
  if (text.empty() || text.size() > kLongest) return std::nullopt;
  const std::wstring given = String::ToLower(std::wstring(text));
  std::size_t least = std::clamp<std::size_t>(given.size() / 4, 1, 3) + 1;
  std::optional<std::wstring> nearest;
  for (const std::wstring& each : known) {
    if (each.size() > kLongest) continue;
    const std::size_t distance = Distance(given, String::ToLower(each));
    if (distance < least) nearest = each;
    least = std::min(least, distance);
  }
  return nearest;
}

std::wstring DidYouMean(std::wstring_view text, const std::vector<std::wstring>& known) {
  const std::optional<std::wstring> nearest = NearestText(text, known);
  return nearest ? L"; did you mean \"" + *nearest + L"\"?" : L"";
}

}  // namespace TVK

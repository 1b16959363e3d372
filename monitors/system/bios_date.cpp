#include "monitors/system/bios_date.h"

#include <algorithm>
#include <string_view>

namespace TVK {

namespace {

constexpr std::wstring_view kForm = L"mm/dd/yyyy";

bool HasForm(std::wstring_view date) {
  return std::ranges::equal(date, kForm, [](wchar_t character, wchar_t place) {
    return place == L'/' ? character == L'/' : character >= L'0' && character <= L'9';
  });
}

}  // namespace

std::wstring ConvertDateFormat(const std::wstring& date, const Log& log) {
  if (date.empty()) return date;
  if (HasForm(date)) {
    const std::wstring month = date.substr(0, 2);
    const std::wstring day = date.substr(3, 2);
    // Texts of two digits order as their numbers do.
    if (month >= L"01" && month <= L"12" && day >= L"01" && day <= L"31")
      return date.substr(6) + L'-' + month + L'-' + day;
  }
  log.e(L"ConvertDateFormat: \"%s\" is no date of the form %s", date, kForm);
  return date;
}

}  // namespace TVK

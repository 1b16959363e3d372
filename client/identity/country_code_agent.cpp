#include "client/identity/country_code_agent.h"

#include "client/identity/iso_tables.h"
#include "client/identity/locale_name.h"
#include "client/text/string.h"
#include "platform/region.h"

using TVK::String;

std::wstring CountryCodeAgent::ValidateCountryCodeKey(const std::wstring& nation) const {
  const std::string code = region_.CountryOfNation(String::UTF16ToUTF8(nation));
  return TVK::FindIsoEntry(TVK::IsoCountries(), code) == nullptr ? std::wstring() : String::UTF8ToUTF16(code);
}

bool CountryCodeAgent::ValidateLocaleNameKey(const std::wstring& locale_name) const {
  const auto parts = TVK::SplitLocaleName(String::UTF16ToUTF8(locale_name));
  if (!parts || TVK::FindIsoEntry(TVK::IsoLanguages(), parts->language) == nullptr) return false;
  const bool may_stand = parts->territory.empty() || parts->territory.size() == 3;
  return may_stand || TVK::FindIsoEntry(TVK::IsoCountries(), parts->territory) != nullptr;
}

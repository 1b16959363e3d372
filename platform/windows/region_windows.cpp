#include "platform/region.h"

#include <charconv>
#include <cwchar>

#include "platform/windows/doors_windows.h"
#include "platform/windows/registry.h"
#include "platform/windows/registry_names.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform::windows {
namespace {

namespace names = Constants::Registry;

class WindowsRegion final : public Region {
 public:
  // By the user's own part of the registry: HKEY_CURRENT_USER is that of the running account.
  RegionFacts ReadFacts() override {
    RegionFacts facts;
    if (const std::string user = ReadLoggedInUserSid(); !user.empty()) {
      const auto read = [&](const std::wstring& key, const wchar_t* name) {
        return RegistryText(HKEY_USERS, WideFromUtf8(user) + L"\\" + key, name);
      };
      facts.nation = read(names::CountryCodeInternationalGeoSubPath, names::CountryCodeNation);
      facts.locale_name = read(names::CountryCodeInternationalSubPath, names::CountryCodeLocaleName);
    }
    facts.of_somebody = !facts.nation.empty() || !facts.locale_name.empty();
    DYNAMIC_TIME_ZONE_INFORMATION zone{};
    if (GetDynamicTimeZoneInformation(&zone) != TIME_ZONE_ID_INVALID) {
      constexpr std::size_t kLength = std::size(zone.TimeZoneKeyName);
      facts.time_zone = Utf8FromWide({zone.TimeZoneKeyName, wcsnlen(zone.TimeZoneKeyName, kLength)});
    }
    return facts;
  }

  // By the system's own table of geographic ids.
  std::string CountryOfNation(const std::string& nation) override {
    GEOID id = 0;
    const char* const end = nation.data() + nation.size();
    const auto [parsed, error] = std::from_chars(nation.data(), end, id);
    if (error != std::errc() || parsed != end) return {};
    wchar_t code[8];
    const int length = GetGeoInfoW(id, GEO_ISO2, code, static_cast<int>(std::size(code)), 0);
    return length > 0 ? Utf8FromWide(code) : std::string();
  }
};

}  // namespace

std::unique_ptr<Region> MakeRegion() {
  return std::make_unique<WindowsRegion>();
}

}  // namespace platform::windows

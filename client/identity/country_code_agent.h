// Tells whether a country or a locale that somebody set does exist.
#pragma once

#include <string>

namespace platform {
class Region;
}

/// Asks the system's own table and those of ISO 3166-1 and ISO 639. Any thread.
class CountryCodeAgent {
 public:
  /// `region` must outlive the agent.
  explicit CountryCodeAgent(platform::Region& region) : region_(region) {}

  /// The ISO 3166-1 alpha-2 code of a nation as platform::RegionFacts gives it: a geographic id in decimal digits on
  /// Windows, the code itself elsewhere. Empty when there is no such country.
  std::wstring ValidateCountryCodeKey(const std::wstring& nation) const;

  /// Whether a locale of that name can be: its language is one of ISO 639-1 or ISO 639-2, and its territory, where it
  /// has one, a country or an area of three digits ("es-419").
  bool ValidateLocaleNameKey(const std::wstring& locale_name) const;

 private:
  platform::Region& region_;
};

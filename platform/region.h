// The region that a machine is set to. Any thread. Texts are UTF-8.
#pragma once

#include <string>

namespace platform {

struct RegionFacts {
  std::string nation;       ///< Windows: decimal geographic id of the user. Elsewhere: ISO 3166-1 alpha-2 code.
  std::string locale_name;  ///< "de-DE". Empty for the C locale.
  std::string time_zone;    ///< "Europe/Berlin" or Windows' zone name.
  /// False while the region is nobody's, since it is a user's and none is logged on whose settings can be read; nation
  /// and locale are empty then.
  bool of_somebody = true;
};

class Region {
 public:
  Region() = default;
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;
  virtual ~Region() = default;

  /// Of the user who is logged on; where the region is the system's own, that one. Never of the service's account.
  virtual RegionFacts ReadFacts() = 0;

  /// The ISO 3166-1 alpha-2 code of a nation as RegionFacts gives it. Empty when the system knows no such nation; where
  /// it keeps no table of its own, the nation as it stands.
  virtual std::string CountryOfNation(const std::string& nation) = 0;
};

}  // namespace platform

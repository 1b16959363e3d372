// Codes and English names of countries and languages, from the iso-codes data; the tables are generated at build time.
#pragma once

#include <span>
#include <string_view>

namespace TVK {

struct IsoEntry {
  std::string_view code;  ///< Country: alpha-2, upper case. Language: ISO 639-1, or ISO 639-2 where that has none.
  std::string_view name;  ///< UTF-8.
};

/// ISO 3166-1 and ISO 639-2, sorted by code.
std::span<const IsoEntry> IsoCountries();
std::span<const IsoEntry> IsoLanguages();

/// The entry of `code` (case as in the table), or null.
const IsoEntry* FindIsoEntry(std::span<const IsoEntry> table, std::string_view code);

}  // namespace TVK

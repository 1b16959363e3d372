#include <algorithm>

#include "client/identity/iso_tables.h"

namespace TVK {

const IsoEntry* FindIsoEntry(std::span<const IsoEntry> table, std::string_view code) {
  const auto found = std::ranges::lower_bound(table, code, {}, &IsoEntry::code);
  return found != table.end() && found->code == code ? &*found : nullptr;
}

}  // namespace TVK

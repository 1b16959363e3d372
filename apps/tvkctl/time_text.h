// Times as a person thinks of them.
#pragma once

#include <cstdint>
#include <string>

namespace tvkctl {

/// "23 s ago", "in 5 min", "2 h ago", "3 d ago"; "now" for less than a second. `seconds`: how long from now, negative
/// in the past. Pure.
std::wstring FromNow(std::int64_t seconds);

}  // namespace tvkctl

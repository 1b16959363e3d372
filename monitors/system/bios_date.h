// The dates of firmware as records carry them.
#pragma once

#include <string>

#include "client/log/log.h"

namespace TVK {

/// "2024-03-31" for the "03/31/2024" (month, day, year) in which firmware gives its dates. Any other text comes back as
/// it is, with an error line in `log` unless it is empty: a two-digit year leaves the century open, and a month or day
/// that no calendar has is not put right here. Any thread.
std::wstring ConvertDateFormat(const std::wstring& date, const Log& log);

}  // namespace TVK

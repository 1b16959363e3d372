// How commands write: aligned lines for people, one line of JSON for programs.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "tvk/records.h"

namespace tvkctl {

/// What no terminal reads has no width.
inline constexpr std::size_t kAnyWidth = static_cast<std::size_t>(-1);

/// Rows of cells in columns, at least two blanks between them. A column is as wide as its longest cell, up to 64
/// characters; what stands behind a longer cell moves to the right. Control characters, which firmware may hold, come
/// out as dots, so that no text reaches the terminal as a command. A row that is wider than `width` cells goes on in
/// further lines.
void WriteColumns(const std::vector<std::vector<std::wstring>>& rows, std::ostream& out, std::size_t width = kAnyWidth);

/// An object of texts in UTF-8.
Json::Value ItemDataToJson(const ItemData& data);

/// `value` in one line of UTF-8.
void WriteJsonLine(const Json::Value& value, std::ostream& out);

}  // namespace tvkctl

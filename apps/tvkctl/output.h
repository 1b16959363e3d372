// How commands write: aligned lines for people, one line of JSON for programs.
#pragma once

#include <json/value.h>

#include <iosfwd>
#include <string>
#include <vector>

#include "tvk/records.h"

namespace tvkctl {

/// Rows of cells in columns, at least two blanks between them. A column is as wide as its longest cell, up to 64
/// characters; what stands behind a longer cell moves to the right. Control characters, which firmware may hold, come
/// out as dots, so that no text reaches the terminal as a command.
void WriteColumns(const std::vector<std::vector<std::wstring>>& rows, std::ostream& out);

/// An object of texts in UTF-8.
Json::Value ItemDataToJson(const ItemData& data);

/// `value` in one line of UTF-8.
void WriteJsonLine(const Json::Value& value, std::ostream& out);

}  // namespace tvkctl

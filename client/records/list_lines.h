// Lists in the values of records, for people.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TVK {

/// A line for each element of a value that is a JSON array: of an object its members as "key=value", with commas
/// between them; of another element its text. Nothing for any other value, for an empty array and for a broken one.
/// Pure; any thread.
std::optional<std::vector<std::string>> ListLines(std::string_view value);

}  // namespace TVK

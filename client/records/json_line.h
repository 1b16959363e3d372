// Whether a stored text is what programs expect of a line of JSON, at the speed at which the store is read.
#pragma once

#include <string>
#include <string_view>

namespace TVK {

/// How deep objects and lists may lie in each other; a record has two levels.
inline constexpr int kDeepestJsonLine = 64;

/// Whether `text` is one JSON object (RFC 8259) without a line feed. Bytes that are no UTF-8 are not looked for. Pure;
/// any thread.
bool IsJsonObjectLine(std::string_view text);

/// The same JSON such that it cannot steer a terminal: the characters that HarmlessText (client/text/string.h) replaces
/// are written as escapes, and U+FFFD stands for bytes that are no UTF-8. `json` is such a line.
std::string HarmlessJson(std::string_view json);

}  // namespace TVK

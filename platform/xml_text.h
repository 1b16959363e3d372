// Texts as XML writes them. Pure functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Adds `text` (UTF-8) to `xml` as the text of an element or, in double quotes, the value of an attribute. What XML 1.0
/// cannot hold, bytes that are no UTF-8 included, becomes U+FFFD.
void AppendXmlText(std::string_view text, std::string& xml);

/// What an XML text or attribute says: XML's five entities and characters by their numbers are replaced, all else stays
/// as it is. Nothing for another entity and for a number of no character.
std::optional<std::string> UnescapeXml(std::string_view xml);

}  // namespace platform

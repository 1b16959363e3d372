// The names of locales, as records and the system write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace TVK {

/// The parts of a locale name that say where and in which language.
struct LocaleParts {
  std::string language;   ///< "de"
  std::string territory;  ///< "DE", or three digits for an area of several countries. Empty when the name has none.
};

/// Takes a name such as "de", "de-DE", "zh-Hans-CN", "ca-ES-valencia" or "de-DE_phoneb" apart (BCP 47; the underscore
/// begins the name of a sort order, which Windows adds). Empty when it is none; whether its parts exist is not looked
/// at.
std::optional<LocaleParts> SplitLocaleName(std::string_view name);

}  // namespace TVK

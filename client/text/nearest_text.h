// What somebody may have meant.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TVK {

/// The one of `known` that `text` is a slip of the hand away from, ASCII case aside: a letter in four left out, added,
/// exchanged or in its neighbour's place, three at most. Nothing where none is, and for a text of more than 64
/// characters. Pure; any thread.
std::optional<std::wstring> NearestText(std::wstring_view text, const std::vector<std::wstring>& known);

/// "; did you mean \"KNOWN\"?" for what NearestText gives, else empty.
std::wstring DidYouMean(std::wstring_view text, const std::vector<std::wstring>& known);

}  // namespace TVK

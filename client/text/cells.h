// How wide text is in a terminal, whose unit is the cell. Texts are UTF-8; pure functions, any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace TVK {

/// The cells that `text` takes: two for a wide character (East Asian ones, most emoji), none for one that combines with
/// the one before it, else one.
std::size_t CellsOf(std::string_view text);

/// The longest beginning of `text` that fits into so many cells, with the characters that combine with its last one; at
/// least one character of a text that is not empty.
std::string_view FitIntoCells(std::string_view text, std::size_t cells);

}  // namespace TVK

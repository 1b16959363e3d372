// The terminal that a person reads in.
#pragma once

#include <cstddef>
#include <optional>

namespace platform {

/// The columns of the terminal that standard output goes to; nothing when it goes elsewhere. Any thread.
std::optional<std::size_t> TerminalWidth();

/// Whether a person reads what goes to standard error. Any thread.
bool StandardErrorIsTerminal();

}  // namespace platform

// The whole of tvkctl but its main.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace tvkctl {

/// Reads the command line (UTF-8, without the program's name), does what it says and returns the exit code. To be
/// called on the main thread before any other thread starts: `records --follow` listens for Ctrl-C from here on.
int RunTvkctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& errors);

/// The manual page tvkctl(1), dated `date` ("2026-01-31").
std::string TvkctlManualPage(const std::string& date);

}  // namespace tvkctl

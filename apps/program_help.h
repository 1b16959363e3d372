// How a program says what its command line may be, and what was wrong with one.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <span>
#include <string>

/// What a program says beside its options: at the end of --help and in its manual page.
struct HelpSection {
  const char* title;  ///< "Exit codes"
  const char* text;   ///< What a person reads; lines are broken where they are shown.
};

/// Has --help of `app`, and of the commands that it is given afterwards, end with the sections and fit the terminal, or
/// 100 columns where standard output is none.
void SetUpHelp(CLI::App& app, std::span<const HelpSection> sections);

/// `text` with each line broken at blanks so that it has at most `width` characters where its words allow it. What goes
/// on of a line that begins with blanks stands in the column of the descriptions.
std::string WrapHelp(const std::string& text, std::size_t width);

/// Puts the program's name before what `app`, which carries it, says of a wrong command line, and says of a command or
/// an option that it does not know what may have been meant.
void ExplainFailures(CLI::App& app);

/// That the line ended with a command that wants another one behind it, and which there are; with a line feed.
std::string CommandIsMissing(const CLI::App& app);

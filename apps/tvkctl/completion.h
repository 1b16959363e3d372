// Completion of command lines in shells, made from the parser's own description.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tvkctl {

/// A script for `shell` ("bash", "zsh" or "powershell") that completes commands and options of `app`, and the values
/// that an option offers (offered_values.h); where another value or a file is to stand, names of files.
std::string CompletionScript(CLI::App& app, const std::string& shell);

}  // namespace tvkctl

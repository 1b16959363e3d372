// Completion of command lines in shells, made from the parser's own description.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tvkctl {

/// A script for `shell` ("bash", "zsh" or "powershell") that completes commands and options of `app`; where neither
/// fits, names of files.
std::string CompletionScript(const CLI::App& app, const std::string& shell);

}  // namespace tvkctl

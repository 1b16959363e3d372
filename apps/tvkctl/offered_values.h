// What the values of an option may be, kept at the option: the shells' completion offers it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tvkctl {

/// Has completion offer `values`, of which none holds a blank; others are not refused. The option.
CLI::Option* Offer(CLI::Option* option, const std::vector<std::string>& values);

/// The same, and refuses others.
CLI::Option* TakeOneOf(CLI::Option* option, const std::vector<std::string>& values);

/// Those with a blank between them; empty: none are offered.
std::string OfferedValues(CLI::Option& option);

}  // namespace tvkctl

// Manual pages, made from what a program's parser knows of its own command line.
#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>

#include "apps/program_help.h"

struct ManualPageFacts {
  int section = 1;                        ///< 1: programs for everybody, 8: for administrators.
  std::string date;                       ///< "2026-01-31".
  std::string version;                    ///< Of the program.
  std::string see_also;                   ///< Pages that belong to it, "TVKClientService(8)".
  std::span<const HelpSection> sections;  ///< Stand at the end, under their titles.
};

/// The page as source of man(7): the program's name, description, options and commands, each with its options. `app`
/// has all of them already. No text of it is taken for a request of the typesetter.
std::string ManualPage(const CLI::App& app, const ManualPageFacts& facts);

#include <iostream>

#include "apps/tvkctl/command_line.h"
#include "platform/program_entry.h"

int ProgramMain(std::vector<std::string> arguments) {
  return tvkctl::RunTvkctl(std::move(arguments), std::cout, std::cerr);
}

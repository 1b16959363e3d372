// The entry of a program, the same on every system: arguments in UTF-8, a console that takes UTF-8.
#pragma once

#include <string>
#include <vector>

/// Defined by each program that links tvk::program_entry, which calls it from the system's own main. `arguments` are
/// without the program's name. The result is the exit code. An exception that leaves it is printed on standard error,
/// behind the program's name, and gives exit code 3.
int ProgramMain(std::vector<std::string> arguments);

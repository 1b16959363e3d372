// The system's own folders, by its word and not by the environment's: whoever starts the process could point the
// service elsewhere.
#pragma once

#include <filesystem>
#include <vector>

namespace platform::windows {

/// What all accounts share, %ProgramData%.
std::filesystem::path CommonFolder();

/// Those of installed programs: of 32 bits, then of 64 bits. What the system does not tell is left out.
std::vector<std::filesystem::path> ProgramFolders();

}  // namespace platform::windows

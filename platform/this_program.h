#pragma once

#include <filesystem>

namespace platform {

/// Absolute path of the running program, from whichever library it is asked. Any thread.
std::filesystem::path ThisProgram();

}  // namespace platform

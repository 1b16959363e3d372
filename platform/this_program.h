#pragma once

#include <filesystem>

namespace platform {

/// Absolute path of the running program, from whichever library it is asked. Any thread.
std::filesystem::path ThisProgram();

/// Has `function` called when this process ends by exit or by returning from main, while its other threads still run;
/// the last that was handed over first. It does so on Linux. Nothing is called on Windows: there all other threads are
/// gone, whatever they held, before a library hears of the end. Any thread.
void CallAtExit(void (*function)());

}  // namespace platform

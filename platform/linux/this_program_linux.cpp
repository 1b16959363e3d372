#include "platform/this_program.h"

#include <cstdlib>

std::filesystem::path platform::ThisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

void platform::CallAtExit(void (*function)()) {
  std::atexit(function);
}

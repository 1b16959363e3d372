#include "platform/this_program.h"

std::filesystem::path platform::ThisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

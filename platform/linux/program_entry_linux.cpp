#include "platform/program_entry.h"

#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

namespace {

int Fail(const char* program, const char* reason) {
  const char* const name = std::strrchr(program, '/');
  static_cast<void>(std::fprintf(stderr, "%s: %s\n", name == nullptr ? program : name + 1, reason));
  return 3;
}

}  // namespace

int main(int count, char** values) {
  // Each thread would get a heap of its own, up to eight a processor, and our many threads allocate little and seldom.
  ::mallopt(M_ARENA_MAX, 2);
  try {
    return ProgramMain(std::vector<std::string>(values + 1, values + count));
  } catch (const std::bad_alloc&) {
    return Fail(values[0], "there is not enough memory");
  } catch (const std::exception& failure) {
    return Fail(values[0], failure.what());
  }
}

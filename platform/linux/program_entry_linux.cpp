#include "platform/program_entry.h"

#include <malloc.h>

#include <cstdio>
#include <exception>
#include <new>

int main(int count, char** values) {
  // Each thread would get a heap of its own, up to eight a processor, and our many threads allocate little and seldom.
  ::mallopt(M_ARENA_MAX, 2);
  try {
    return ProgramMain(std::vector<std::string>(values + 1, values + count));
  } catch (const std::bad_alloc&) {
    static_cast<void>(std::fputs("there is not enough memory\n", stderr));
    return 3;
  } catch (const std::exception& failure) {
    static_cast<void>(std::fprintf(stderr, "%s\n", failure.what()));
    return 3;
  }
}

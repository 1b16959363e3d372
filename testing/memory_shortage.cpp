#include "testing/memory_shortage.h"

#include <cstdlib>
#include <new>

namespace {

struct Shortage {
  std::size_t granted = 0;
  std::size_t refused = 0;
  bool any_refused = false;
};
thread_local Shortage shortage;

bool IsRefused() {
  if (shortage.refused == 0) return false;
  if (shortage.granted > 0) {
    --shortage.granted;
    return false;
  }
  --shortage.refused;
  return shortage.any_refused = true;
}

}  // namespace

void BeginMemoryShortage(std::size_t granted, std::size_t refused) {
  shortage = {granted, refused, false};
}

bool EndMemoryShortage() {
  const bool any = shortage.any_refused;
  shortage = {};
  return any;
}

void* operator new(std::size_t size) {
  void* const memory = IsRefused() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
  return IsRefused() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

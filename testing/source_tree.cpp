#include "testing/source_tree.h"

#include <cstdlib>

std::filesystem::path FromSourceTree(const std::string& place) {
  const char* const elsewhere = std::getenv("TVK_SOURCE_TREE");
  return std::filesystem::path(elsewhere != nullptr ? elsewhere : TVK_BUILT_OF) / place;
}

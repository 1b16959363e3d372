#include "platform/linux/link_chain.h"

#include <deque>

namespace platform {

std::vector<std::filesystem::path> LinkChain(const std::filesystem::path& file) {
  std::vector<std::filesystem::path> chain;
  std::deque<std::filesystem::path> ahead(file.begin(), file.end());
  std::filesystem::path here;
  while (!ahead.empty()) {
    const std::filesystem::path name = std::move(ahead.front());
    ahead.pop_front();
    std::error_code failure;
    if (name.empty() || name == ".") continue;
    if (name == "..") {
      // Nothing leads out of a folder that is not there: it is what is missing.
      if (!std::filesystem::is_directory(here, failure)) break;
      here = here.parent_path();
      continue;
    }
    std::filesystem::path next = here / name;  // a root replaces what is before it
    const std::filesystem::path target = std::filesystem::read_symlink(next, failure);
    if (failure || chain.size() == kMostLinks) {
      here = std::move(next);
    } else {
      ahead.insert(ahead.begin(), target.begin(), target.end());
      chain.push_back(std::move(next));
    }
  }
  chain.push_back(here);
  return chain;
}

}  // namespace platform

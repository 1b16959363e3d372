#include "testing/temp_folder.h"

#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

TempFolder::TempFolder() {
  std::random_device random;
  for (int tries = 0; tries < 10; ++tries) {
    path_ = std::filesystem::temp_directory_path() / ("tvk-" + std::to_string(random()) + std::to_string(random()));
    if (std::filesystem::create_directory(path_)) return;
  }
  throw std::runtime_error("no temporary folder");
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

// Where the tests of the kit work: in the kit's own folder, whatever a user's surroundings are.
#pragma once

#include <filesystem>

namespace windows_kit {

/// While it lives, the current folder is the kit's, and this process and those that it starts keep temporary files and
/// what belongs to the user in the folder "work" in it, which goes at the end. No program that crashes shows a window.
class Surroundings {
 public:
  /// Throws std::filesystem::filesystem_error when the kit's folder cannot be written to.
  explicit Surroundings(const std::filesystem::path& kit);
  ~Surroundings();
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

 private:
  const std::filesystem::path work_;
};

}  // namespace windows_kit

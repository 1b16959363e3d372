// A recorded tree of another computer for tests, from a table of paths and texts.
#pragma once

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>

#include "testing/temp_folder.h"

namespace platform {

class RecordedTree {
 public:
  using File = std::pair<std::string, std::string>;
  RecordedTree() = default;
  RecordedTree(std::initializer_list<File> files) {
    for (const File& file : files)
      Write(file.first, file.second);
  }

  void Write(const std::string& inner, const std::string& content) const {
    const std::filesystem::path file = root() / std::filesystem::path(inner).relative_path();
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
  }
  void Remove(const std::string& inner) const {
    std::filesystem::remove_all(root() / std::filesystem::path(inner).relative_path());
  }
  const std::filesystem::path& root() const { return folder_.path(); }

 private:
  TempFolder folder_;
};

}  // namespace platform

// The file of one log, bounded in size.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/append_file.h"

namespace TVK {

/// Lines go to "name.log". When it would grow beyond the limit it becomes "name.1.log", what had that name
/// "name.2.log", and so on; the oldest goes. One thread at a time.
class RotatingFile {
 public:
  /// Opens `file`, see platform::AppendFile. `limit` in bytes, `older`: how many files are kept beside it.
  /// Throws std::runtime_error when it cannot be opened.
  RotatingFile(std::filesystem::path file, std::uint64_t limit, int older);

  /// Adds `line`, which brings its own end, as a whole. Throws std::runtime_error, and adds nothing, when the system
  /// refuses. A line that alone is longer than the limit is written all the same.
  void Write(const std::string& line);

 private:
  void Open();
  void Rotate();
  std::filesystem::path Name(int number) const;

  const std::filesystem::path file_;
  const std::uint64_t limit_;
  const int older_;
  std::unique_ptr<platform::AppendFile> open_;  ///< Null: to be opened by the next line.
  std::uint64_t size_ = 0;
};

}  // namespace TVK

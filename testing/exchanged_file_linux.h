// A file that becomes another one without anybody being told.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/linux/unique_fd.h"

namespace TVK {

/// `link` leads to whichever file a descriptor of this process stands for.
class ExchangedFile {
 public:
  /// Makes `link`. Both operations throw std::system_error when `file` cannot be opened.
  ExchangedFile(const std::filesystem::path& link, const std::filesystem::path& file) : descriptor_(Open(file)) {
    std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(descriptor_.get()), link);
  }

  void LeadTo(const std::filesystem::path& file) const {
    if (::dup3(Open(file).get(), descriptor_.get(), O_CLOEXEC) < 0) Fail(file);
  }

 private:
  static platform::UniqueFd Open(const std::filesystem::path& file) {
    platform::UniqueFd opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (opened.get() < 0) Fail(file);
    return opened;
  }
  [[noreturn]] static void Fail(const std::filesystem::path& file) {
    throw std::system_error(errno, std::generic_category(), file.string());
  }

  const platform::UniqueFd descriptor_;
};

}  // namespace TVK

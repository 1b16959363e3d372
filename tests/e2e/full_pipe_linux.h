// An output that takes nothing.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/linux/unique_fd.h"

/// A pipe in which there is no room left, and that nobody reads.
class FullPipe {
 public:
  explicit FullPipe(const std::filesystem::path& path) {
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    both_ends_ = platform::UniqueFd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const std::string block(4096, '\n');
    while (::write(both_ends_.get(), block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(errno, EAGAIN);
  }

 private:
  platform::UniqueFd both_ends_;
};

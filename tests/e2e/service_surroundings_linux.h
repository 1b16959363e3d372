// What a service has around it on this system: its manager's socket, and a pipe for its output.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/linux/unique_fd.h"

/// The manager's end of NOTIFY_SOCKET, for programs that are started while it lives.
class NotifySocket {
 public:
  explicit NotifySocket(const std::filesystem::path& path) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.string().size(), sizeof address.sun_path);
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~NotifySocket() { ::unsetenv("NOTIFY_SOCKET"); }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  /// Takes what has arrived; whether `text` has arrived up to now.
  bool Got(const std::string& text) {
    std::array<char, 1024> buffer;
    ssize_t size = 0;
    while ((size = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0)
      heard_.append(buffer.data(), static_cast<std::size_t>(size)) += '\n';
    return heard_.find(text) != heard_.npos;
  }

 private:
  const platform::UniqueFd socket_;
  std::string heard_;
};

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

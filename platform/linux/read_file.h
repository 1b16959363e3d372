// Reading of files whose size is not known before, as those of /proc and /sys.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace platform {

/// The bytes of `file` up to its end. Empty when it cannot be read, `error` then being the errno: EFBIG when it is
/// longer than `limit` bytes, ENXIO when it is a pipe or a socket, EAGAIN when it is a device that has nothing to give
/// at present. Never waits for another process. Any thread.
std::optional<std::string> ReadFileBytes(const std::filesystem::path& file, std::size_t limit, int& error);

}  // namespace platform

// What a path stands for when symbolic links are on the way.
#pragma once

#include <filesystem>
#include <vector>

namespace platform {

/// How many links the kernel follows in one path (path_resolution(7)).
inline constexpr std::size_t kMostLinks = 40;

/// The links that opening `file`, an absolute path, goes through, and as the last element the file itself; each as a
/// path without a link or "." and ".." in it. What does not exist, or cannot be looked at, counts as no link; after
/// kMostLinks links, no further one is followed. Any thread.
std::vector<std::filesystem::path> LinkChain(const std::filesystem::path& file);

}  // namespace platform

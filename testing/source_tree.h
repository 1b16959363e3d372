#pragma once

#include <filesystem>
#include <string>

/// A file or a folder of the source tree, "docs/records.md": of the tree that the test was built of or, where it runs
/// on another machine, of the one that the environment names, TVK_SOURCE_TREE.
std::filesystem::path FromSourceTree(const std::string& place);

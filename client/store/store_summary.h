// How full the store is and how recent, for a person who asks.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace TVK {

/// Times in seconds since 1970, as the store took the records.
struct StoreSummary {
  std::uint64_t bytes = 0;                                      ///< See StoreBytes.
  std::optional<std::int64_t> oldest_seconds;                   ///< The oldest record; nothing in an empty store.
  std::map<std::string, std::int64_t> last_seconds_by_dataset;  ///< By dataset id; empty for device contexts.
};

/// What the store `file` takes on the disk, with what was written and stands beside it yet. 0: that cannot be told. Any
/// thread.
std::uint64_t StoreBytes(const std::filesystem::path& file);

/// Reads the store `file` on a connection of its own. Nothing, and the reason in `problem`, when that cannot be done.
/// Any thread.
std::optional<StoreSummary> ReadStoreSummary(const std::filesystem::path& file, std::string& problem);

}  // namespace TVK

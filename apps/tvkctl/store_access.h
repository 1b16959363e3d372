// What a person is told of a store that cannot be read.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>

#include "client/store/record_reader.h"

namespace tvkctl {

/// Says on `errors` why the store `file` is not open, and returns the exit code: 0 where it is, 2 where there is none,
/// 3 where it cannot be read. `problem` is the reader's.
int ExplainAccess(TVK::StoreAccess access, const std::filesystem::path& file, const std::string& problem,
                  std::ostream& errors);

}  // namespace tvkctl

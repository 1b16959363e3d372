// Reading a dataset's state where a store that cannot be opened is no answer.
#pragma once

#include <string>

#include "client/store/event_data_logging.h"

namespace TVK {

/// As EventDataLogging::GetState, but tries once to open a closed store anew; kStoreClosed only when that fails. Any
/// thread; waits for a commit then.
int ReadKeptState(EventDataLogging& store, const std::wstring& dataset_id, const std::wstring& key,
                  std::wstring& value);

}  // namespace TVK

// A small thing that a dataset's monitor keeps in the store.
#pragma once

#include <string>

namespace TVK {

/// Keys of states that say how far a source was read which keeps what was recorded of it: an event log, what of it was
/// told to be lost, the system's counters of memory errors (followed by the controller's name). An erasure leaves them,
/// else what it deleted would be read, and recorded, again.
inline constexpr wchar_t kBookmarkState[] = L"bookmark";
inline constexpr wchar_t kInterruptionState[] = L"interruption";
inline constexpr wchar_t kMemoryErrorsState[] = L"memory ";

/// What stands in kBookmarkState while the consent to the dataset is withdrawn: what its source holds of that time is
/// not to be told later.
inline constexpr wchar_t kWithdrawnPlace[] = L"withdrawn";

/// Stands in no record: how far a log was read, which boot has its item. What is about an item event is written with
/// it, in one transaction, so that neither is ever there without the other.
struct DatasetState {
  std::wstring key;  ///< Of the dataset's own choice; empty: nothing is kept.
  std::wstring value;
};

}  // namespace TVK

// A small thing that a dataset's monitor keeps in the store.
#pragma once

#include <string>

namespace TVK {

/// Stands in no record: how far a log was read, which boot has its item. What is about an item event is written with
/// it, in one transaction, so that neither is ever there without the other.
struct DatasetState {
  std::wstring key;  ///< Of the dataset's own choice; empty: nothing is kept.
  std::wstring value;
};

}  // namespace TVK

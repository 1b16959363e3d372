#pragma once

namespace TVK {

/// The three kinds of records. The store keeps the numbers: they never change.
enum class RecordKind { kItem = 0, kDataset = 1, kDevice = 2 };

}  // namespace TVK

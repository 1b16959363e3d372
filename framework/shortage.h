// What the system refused a monitor, and may give it later.
#pragma once

#include <functional>
#include <string_view>

namespace TVK {

/// In the order of what it takes to mend them.
enum class Shortage {
  kNone,
  kSettings,  ///< Something that the monitor starts when it reads its settings: it is to read them again.
  kStart,     ///< Something that it starts with: it is to be started anew.
};

/// Told by a monitor that the system gave it no thread or no event; the manager tries again, with growing pauses. Any
/// thread. `dataset_id`: a row's.
using ShortageListener = std::function<void(std::wstring_view dataset_id, Shortage shortage)>;

}  // namespace TVK

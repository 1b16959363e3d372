// Whether the machine tells what a dataset observes.
#pragma once

#include <string>
#include <string_view>

#include "platform/machine.h"

namespace tvkctl {

enum class SourceState {
  kTells,
  kNoRight,  ///< This account may not ask.
  kNothing,  ///< The machine has nothing of the kind, as a desktop has no battery.
  kFails,
  kUnknown,  ///< Not to be tried from here.
};

struct SourceReport {
  SourceState state = SourceState::kUnknown;
  std::string text;  ///< What was found, in a few words.
};

/// Asks the machine once for the facts of the dataset of this name. A drive is opened, and nothing is read from it.
SourceReport TrySource(std::wstring_view dataset, platform::Machine& machine);

}  // namespace tvkctl

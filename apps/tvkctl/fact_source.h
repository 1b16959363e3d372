// Whether the machine tells what a dataset observes.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "platform/machine.h"
#include "platform/runtime.h"

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

/// As long as the service waits for a source of batteries.
inline constexpr std::chrono::seconds kSourceLimit{10};

/// Asks the machine once for the facts of the dataset of this name. A drive is opened, and nothing is read from it. A
/// machine that does not answer within kSourceLimit fails; the thread that asks it is left behind, and keeps it.
SourceReport TrySource(std::wstring_view dataset, const std::shared_ptr<platform::Machine>& machine,
                       platform::Runtime& runtime);

}  // namespace tvkctl

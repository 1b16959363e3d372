// The consent under which a dataset observes and writes.
#pragma once

#include <functional>

#include "framework/dataset_row.h"

namespace TVK {

/// Answers from the policy and the telemetry scope in force at the moment of the question. Any thread.
class Consent {
 public:
  /// Whether the dataset may observe now: to be asked right before a sample.
  virtual bool Admits(const DatasetRow& row) = 0;

  /// Runs `write` when the dataset may write now, and says whether it did. Once another policy or scope is in force, no
  /// write that it excludes begins; one that began before is let through, and whoever withdraws a consent waits for it.
  /// `write` may wait for the store, and may throw. No lock is held meanwhile.
  virtual bool WriteIfAdmitted(const DatasetRow& row, const std::function<void()>& write) = 0;

 protected:
  ~Consent() = default;
};

}  // namespace TVK

// The consent under which a dataset observes and writes.
#pragma once

#include <functional>

#include "framework/dataset_row.h"

/// Answers from the policy and the telemetry scope in force at the moment of the question. Any thread.
class Consent {
 public:
  /// Whether the dataset may observe now: to be asked right before a sample.
  virtual bool Admits(const DatasetRow& row) = 0;

  /// Runs `write` when the dataset may write now, and says whether it did. No other policy and no other scope come into
  /// force before `write` has returned: whoever withdraws a consent knows, once that is done, that nothing is written
  /// any more. `write` may wait for the store; it must not ask for a consent itself.
  virtual bool WriteIfAdmitted(const DatasetRow& row, const std::function<void()>& write) = 0;

 protected:
  ~Consent() = default;
};

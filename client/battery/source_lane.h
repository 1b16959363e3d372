// How a source is asked that may hang.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "client/log/limited_calls.h"
#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Asks one source on threads that can be left behind, and does not ask it again while one of them is. One thread at a
/// time.
class SourceLane {
 public:
  /// How long one question is waited for: the doors give up a driver that can be given up earlier.
  static constexpr std::chrono::seconds kLimit{10};

  /// `source` names it in the lines that say that it hangs and that it answers again. `runtime` must outlive the
  /// object.
  SourceLane(platform::Runtime& runtime, const Log& log, std::wstring source);

  /// What `question` gives, which must own all that it touches: it may outlive everything. Nothing when it did not come
  /// back within kLimit, when it was not begun because an earlier one has not come back, when `stop` came first, which
  /// may be null, and when it threw or could not be begun, which is logged.
  template <typename Answer>
  std::optional<Answer> Ask(std::function<Answer()> question, platform::Waitable* stop) {
    const auto answer = std::make_shared<std::optional<Answer>>();
    if (!Run([answer, question = std::move(question)] { *answer = question(); }, stop)) return std::nullopt;
    return std::move(*answer);
  }

 private:
  bool Run(std::function<void()> call, platform::Waitable* stop);

  const Log log_;
  const std::wstring source_;
  LimitedCalls calls_;
  bool hangs_ = false;
};

}  // namespace TVK

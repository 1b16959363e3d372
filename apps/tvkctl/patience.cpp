#include "apps/tvkctl/patience.h"

#include <chrono>
#include <ostream>
#include <system_error>

namespace tvkctl {

Patience::Patience(platform::Runtime& runtime, std::string doing, std::ostream& errors)
    : runtime_(runtime),
      doing_(std::move(doing)),
      errors_(errors),
      done_(runtime.MakeEvent(platform::EventReset::kManual)) {
  try {
    thread_ = runtime.StartThread("tvk-patience", [this] { Tell(); });
  } catch (const std::system_error&) {
    // The work itself needs none of what is told of it.
  }
}

Patience::~Patience() {
  done_->Set();
  if (thread_.joinable()) runtime_.Join(thread_);
}

void Patience::Tell() {
  std::chrono::seconds passed(0);
  for (std::chrono::seconds next(2);; next *= 2) {
    if (runtime_.Wait(*done_, next - passed) == 0) return;
    passed = next;
    errors_ << "tvkctl: " + doing_ + ", for " + std::to_string(passed.count()) + " seconds now\n" << std::flush;
  }
}

}  // namespace tvkctl

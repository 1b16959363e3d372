#include "core/monitor_stoppers.h"

#include <algorithm>
#include <exception>

#include "client/log/guarded_thread.h"

namespace TVK {

void MonitorStoppers::Run(std::wstring_view dataset_name, const std::function<void()>& stop,
                          const std::function<void()>& ended_late) {
  static constexpr wchar_t kStop[] = L"EventManager::StopAndRemoveFromList";
  try {
    Stopper& stopper = stoppers_.emplace_back(Stopper{std::wstring(dataset_name),
                                                      runtime_.MakeEvent(platform::EventReset::kManual),
                                                      std::make_shared<std::atomic<bool>>(false),
                                                      {}});
    try {
      stopper.thread = StartGuardedThread(runtime_, log_, "tvk-stop",
                                          [this, stop, ended_late, done = stopper.done, late = stopper.late] {
                                            CallLogged(log_, kStop, stop);
                                            done->Set();
                                            if (*late)
                                              CallLogged(log_, L"EventManager::StopDisabledDatasets", ended_late);
                                          });
    } catch (...) {
      stoppers_.pop_back();
      throw;
    }
  } catch (const std::exception&) {
    CallLogged(log_, kStop, stop);
  }
}

void MonitorStoppers::Wait(platform::Event* end) {
  constexpr std::chrono::seconds kPatience(1);
  const platform::SteadyTime latest = runtime_.clock().Steady() + kPatience;
  for (auto stopper = stoppers_.begin(); stopper != stoppers_.end();) {
    // What was given up before is only looked at.
    const auto left = *stopper->late ? std::chrono::nanoseconds(0)
                                     : std::max<std::chrono::nanoseconds>(latest - runtime_.clock().Steady(),
                                                                          std::chrono::nanoseconds(0));
    platform::Waitable* const objects[] = {stopper->done.get(), end};
    constexpr platform::WaitCode kEnd = 1;
    const auto wait = [&](std::chrono::milliseconds limit) {
      return runtime_.WaitAny({objects, end == nullptr ? 1u : 2u}, limit);
    };
    const platform::WaitCode code = wait(std::chrono::ceil<std::chrono::milliseconds>(left));
    if (code == kEnd) return;
    bool ended = code == 0;
    if (!ended && !stopper->late->exchange(true)) {
      // It may have ended just before it could see that.
      ended = wait(std::chrono::milliseconds(0)) == 0;
      if (!ended) {
        log_.e(L"%s: %s is still busy; the others go on", L"EventManager::StopDisabledDatasets", stopper->dataset_name);
      }
    }
    if (ended) {
      runtime_.Join(stopper->thread);
      stopper = stoppers_.erase(stopper);
    } else {
      ++stopper;
    }
  }
}

void MonitorStoppers::JoinAll() {
  for (Stopper& stopper : stoppers_)
    runtime_.Join(stopper.thread);
  stoppers_.clear();
}

}  // namespace TVK

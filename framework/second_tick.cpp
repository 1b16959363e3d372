#include "framework/second_tick.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "client/text/string.h"

namespace TVK {

struct SecondTick::Watcher {
  const Look& look;         ///< The watching thread's, as long as it has not gone.
  const std::string& name;  ///< Likewise.
  const std::unique_ptr<platform::Event> found;
  std::mutex look_mutex = {};  ///< Held while the look runs; guards gone.
  bool gone = false;
  /// Whether `work` is the watching thread's; otherwise it is the tick's.
  std::atomic<bool> busy = false;
  Work work = nullptr;
};

SecondTick::SecondTick(platform::Runtime& runtime) : runtime_(runtime) {
  utility::InitLog(log_, ServiceLog(L"SecondTick.log"), 4);
}

bool SecondTick::Watch(const std::string& name, platform::Waitable& stop, const Look& look) {
  try {
    const std::shared_ptr<Watcher> watcher(
        new Watcher{.look = look, .name = name, .found = runtime_.MakeEvent(platform::EventReset::kAuto)});
    Enter(watcher);
    const auto do_work = [&] {
      CallLogged(log_, name, watcher->work);
      watcher->work = nullptr;
      watcher->busy = false;
    };
    platform::Waitable* const wakers[] = {&stop, watcher->found.get()};
    while (runtime_.WaitAny(wakers, platform::kForever) == 1)
      do_work();
    Leave(watcher);
    if (watcher->busy) do_work();
    return true;
  } catch (const std::exception& failure) {
    log_.e(L"%s: cannot be watched: %s", String::UTF8ToUTF16(name), String::UTF8ToUTF16(failure.what()));
    return false;
  }
}

void SecondTick::Enter(const std::shared_ptr<Watcher>& watcher) {
  const std::lock_guard thread_lock(thread_mutex_);
  {
    const std::lock_guard list_lock(list_mutex_);
    watchers_.push_back(watcher);
  }
  try {
    if (thread_ == nullptr) {
      thread_ = std::make_unique<PeriodicThread>(runtime_, PeriodicThread::Time::kWaking, std::chrono::seconds(1),
                                                 std::chrono::seconds(0), "tvk-tick", [this] { Tick(); });
    }
    ++watcher_count_;
  } catch (...) {
    const std::lock_guard list_lock(list_mutex_);
    watchers_.remove(watcher);
    throw;
  }
}

void SecondTick::Leave(const std::shared_ptr<Watcher>& watcher) {
  {
    const std::lock_guard list_lock(list_mutex_);
    watchers_.remove(watcher);
  }
  {
    // Waits for this watcher's own look and for no other.
    const std::lock_guard look_lock(watcher->look_mutex);
    watcher->gone = true;
  }
  const std::lock_guard thread_lock(thread_mutex_);
  if (--watcher_count_ == 0) thread_ = nullptr;
}

void SecondTick::Tick() {
  std::list<std::shared_ptr<Watcher>> watchers;
  {
    const std::lock_guard list_lock(list_mutex_);
    watchers = watchers_;
  }
  for (const auto& watcher : watchers) {
    const std::lock_guard look_lock(watcher->look_mutex);
    if (watcher->gone || watcher->busy) continue;
    CallLogged(log_, watcher->name, [&] { watcher->work = watcher->look(); });
    if (watcher->work == nullptr) continue;
    watcher->busy = true;
    watcher->found->Set();
  }
}

}  // namespace TVK

#include "platform/simulated/virtual_world.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "platform/civil_time.h"
#include "platform/deadline.h"

namespace platform {

/// One blocked thread. Lives on that thread's stack; guarded by the world's lock.
struct VirtualWait {
  const std::vector<VirtualSignal*>& signals;
  std::shared_ptr<VirtualThread> thread;  ///< Null: a thread that the world did not start.
  std::condition_variable ended;          ///< For threads of the world; the others sleep on the world's `changed_`.
  std::optional<VirtualWorld::Agenda::iterator> due;
  std::optional<VirtualWorld::Drives::iterator> drive;
  std::optional<WaitCode> result;  ///< Set by whoever ends the wait.
};

struct VirtualTimerState {
  std::function<void()> callback;
  std::uint64_t sequence = 0;
  std::optional<VirtualWorld::Agenda::iterator> due;
  std::thread::id running_on;  ///< The thread inside `callback`; none: not running.
};

WallTime VirtualWorld::Now() const {
  const auto lock = Lock();
  return options_.start + std::chrono::floor<milliseconds>(now_);
}

SteadyTime VirtualWorld::Steady() const {
  const auto lock = Lock();
  return now_;
}

LocalTime VirtualWorld::ToLocal(std::int64_t unix_seconds) const {
  return ToCivil(unix_seconds, options_.utc_offset_minutes);
}

std::int64_t VirtualWorld::FromLocal(const LocalTime& local) const {
  return FromCivil(local, options_.utc_offset_minutes);
}

std::shared_ptr<VirtualThread> VirtualWorld::Find(std::thread::id id) const {
  const auto found = std::ranges::find_if(threads_, [id](const auto& thread) { return thread->id == id; });
  return found == threads_.end() ? nullptr : *found;
}

VirtualWorld::Agenda::iterator VirtualWorld::Schedule(SteadyTime time, std::uint64_t sequence,
                                                      Agenda::mapped_type what) {
  return agenda_.emplace(AgendaKey(time, sequence, next_asking_++), std::move(what)).first;
}

void VirtualWorld::Offer(VirtualSignal& signal) {
  while (!signal.waits.empty() && signal.TryConsume()) {
    VirtualWait& wait = *signal.waits.front();
    const auto index = std::ranges::find(wait.signals, &signal) - wait.signals.begin();
    End(wait, static_cast<WaitCode>(index));
  }
}

void VirtualWorld::End(VirtualWait& wait, WaitCode result) {
  for (VirtualSignal* signal : wait.signals)
    std::erase(signal->waits, &wait);
  if (wait.due) agenda_.erase(*wait.due);
  wait.result = result;
  if (wait.thread != nullptr) {
    wait.thread->waiting = false;
    ++running_;
    ++wake_ups_;
    wait.ended.notify_one();
    return;
  }
  // From here on the clock must not move for this driver's sake, however long its thread takes to wake up.
  drives_.erase(*wait.drive);
  changed_.notify_all();
}

WaitCode VirtualWorld::Wait(const std::vector<VirtualSignal*>& signals, milliseconds timeout) {
  auto lock = Lock();
  for (std::size_t i = 0; i < signals.size(); ++i) {
    if (signals[i]->TryConsume()) return static_cast<WaitCode>(i);
  }
  if (timeout <= milliseconds(0)) return kWaitTimeout;

  VirtualWait wait{.signals = signals,
                   .thread = Find(std::this_thread::get_id()),
                   .ended = {},
                   .due = {},
                   .drive = {},
                   .result = {}};
  for (VirtualSignal* signal : signals)
    signal->waits.push_back(&wait);
  const std::optional<SteadyTime> deadline = DeadlineAfter(now_, timeout);
  if (deadline) {
    // Threads from outside come last: what the world does at that instant is done when their wait ends.
    const auto sequence = wait.thread ? wait.thread->sequence : std::numeric_limits<std::uint64_t>::max();
    wait.due = Schedule(*deadline, sequence, &wait);
  }

  if (wait.thread == nullptr) {
    wait.drive = drives_.insert(deadline.value_or(SteadyTime::max()));
    DriveUntil(lock, [&] { return wait.result.has_value(); });
  } else {
    wait.thread->waiting = true;
    StopRunning(lock);
    wait.ended.wait(lock, [&] { return wait.result.has_value(); });
  }
  return *wait.result;
}

/// Does the one thing that is due first, if the clock may go there; false: it may not, or nothing is due.
bool VirtualWorld::Step(std::unique_lock<std::mutex>& lock, Caller caller) {
  if (running_ > 0 || agenda_.empty() || drives_.empty()) return false;
  const auto first = agenda_.begin();
  const SteadyTime time = std::get<SteadyTime>(first->first);
  if (time > *drives_.rbegin()) return false;
  if (VirtualWait* const* wait = std::get_if<VirtualWait*>(&first->second)) {
    now_ = std::max(now_, time);
    End(**wait, kWaitTimeout);
    return true;
  }
  // A thread of the world is inside a wait of its own; a callback there would meet the locks that it holds.
  if (caller == Caller::kThreadOfTheWorld) return false;
  now_ = std::max(now_, time);
  const auto timer = std::get<std::shared_ptr<VirtualTimerState>>(first->second);
  agenda_.erase(first);
  RunCallback(lock, timer);
  return true;
}

/// The calling thread of the world waits or ends. The last one to do so moves the clock itself, which spares the change
/// to the driver and back that would make up most of a simulated day.
void VirtualWorld::StopRunning(std::unique_lock<std::mutex>& lock) {
  --running_;
  while (Step(lock, Caller::kThreadOfTheWorld)) {
  }
  if (running_ == 0) changed_.notify_all();
}

void VirtualWorld::DriveUntil(std::unique_lock<std::mutex>& lock, const std::function<bool()>& reached) {
  while (!reached()) {
    if (!Step(lock, Caller::kDriver)) changed_.wait(lock);
  }
  changed_.notify_all();  // Another driver may have to take over.
}

void VirtualWorld::RunCallback(std::unique_lock<std::mutex>& lock, const std::shared_ptr<VirtualTimerState>& timer) {
  timer->due.reset();
  timer->running_on = std::this_thread::get_id();
  ++running_;
  ++wake_ups_;
  lock.unlock();
  timer->callback();
  lock.lock();
  timer->running_on = {};
  --running_;
  changed_.notify_all();
}

std::thread VirtualWorld::StartThread(std::string_view name, std::function<void()> body) {
  const auto state = std::make_shared<VirtualThread>();
  state->name = name.substr(0, 15);
  // Held until the thread is listed, so that it finds itself there whatever it does first.
  const auto lock = Lock();
  std::thread thread([this, state, body = std::move(body)]() mutable noexcept {
    body();
    body = nullptr;  // What the body owns may use the world until here.
    EndThread(*state);
  });
  state->id = thread.get_id();
  state->sequence = next_sequence_++;
  threads_.push_back(state);
  ++running_;
  return thread;
}

void VirtualWorld::EndThread(VirtualThread& thread) {
  auto lock = Lock();
  std::erase_if(threads_, [&](const auto& other) { return other.get() == &thread; });
  thread.ended = true;
  Offer(thread);
  StopRunning(lock);
}

void VirtualWorld::Join(std::thread& thread) {
  if (thread.get_id() == std::this_thread::get_id()) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
  }
  std::shared_ptr<VirtualThread> state;
  {
    const auto lock = Lock();
    state = Find(thread.get_id());
  }
  if (state != nullptr) Wait({state.get()}, kForever);
  thread.join();  // The thread has left the world and is about to end.
}

std::vector<VirtualThreadState> VirtualWorld::Threads() const {
  const auto lock = Lock();
  std::vector<VirtualThreadState> states;
  for (const auto& thread : threads_)
    states.push_back({thread->name, thread->waiting});
  return states;
}

std::uint64_t VirtualWorld::WakeUps() const {
  const auto lock = Lock();
  return wake_ups_;
}

void VirtualWorld::AdvanceBy(milliseconds duration) {
  auto lock = Lock();
  if (Find(std::this_thread::get_id()) != nullptr) {
    throw std::logic_error("a thread of a virtual world cannot advance its clock");
  }
  const SteadyTime target = DeadlineAfter(now_, duration).value_or(SteadyTime::max());
  const auto drive = drives_.insert(target);
  DriveUntil(lock, [&] {
    return running_ == 0 && (agenda_.empty() || std::get<SteadyTime>(agenda_.begin()->first) > target);
  });
  drives_.erase(drive);
  now_ = std::max(now_, target);
}

std::shared_ptr<VirtualTimerState> VirtualWorld::MakeTimer(std::function<void()> callback) {
  auto timer = std::make_shared<VirtualTimerState>();
  timer->callback = std::move(callback);
  const auto lock = Lock();
  timer->sequence = next_sequence_++;
  return timer;
}

void VirtualWorld::Arm(const std::shared_ptr<VirtualTimerState>& timer, milliseconds delay) {
  const auto lock = Lock();
  if (timer->due) agenda_.erase(*timer->due);
  timer->due.reset();
  if (const std::optional<SteadyTime> time = DeadlineAfter(now_, delay)) {
    timer->due = Schedule(*time, timer->sequence, timer);
    if (running_ == 0) changed_.notify_all();  // Drivers that found nothing due.
  }
}

void VirtualWorld::Disarm(VirtualTimerState& timer) {
  auto lock = Lock();
  const auto running_elsewhere = [&] {
    return timer.running_on != std::thread::id() && timer.running_on != std::this_thread::get_id();
  };
  changed_.wait(lock, [&] { return !running_elsewhere(); });
  // After the callback: it may have armed its timer again.
  if (timer.due) agenda_.erase(*timer.due);
  timer.due.reset();
}

}  // namespace platform

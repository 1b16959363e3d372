#include "platform/simulated/virtual_world.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "platform/civil_time.h"
#include "platform/deadline.h"

namespace platform {

/// One blocked thread. Lives on that thread's stack; guarded by the world's lock.
struct VirtualWait {
  const std::vector<VirtualSignal*>& signals;
  std::shared_ptr<VirtualThread> thread;  ///< Null: a thread that the world did not start.
  bool counts_sleep;
  std::condition_variable ended;  ///< For threads of the world; the others sleep on the world's `changed_`.
  std::optional<VirtualWorld::Agenda::iterator> due;
  std::optional<VirtualWorld::Drives::iterator> drive;
  std::optional<WaitCode> result;  ///< Set by whoever ends the wait.
};

WallTime VirtualWorld::Now() const {
  const auto lock = Lock();
  return options_.start + std::chrono::floor<milliseconds>(ElapsedNow().time_since_epoch());
}

SteadyTime VirtualWorld::Steady() const {
  const auto lock = Lock();
  return now_;
}

ElapsedTime VirtualWorld::Elapsed() const {
  const auto lock = Lock();
  return ElapsedNow();
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
  return Block(lock, signals, DeadlineAfter(now_, timeout), false);
}

WaitCode VirtualWorld::WaitUntil(const std::vector<VirtualSignal*>& signals, ElapsedTime deadline) {
  auto lock = Lock();
  const auto left = std::max(deadline, ElapsedNow()) - ElapsedNow();
  return Block(lock, signals, deadline == ElapsedTime::max() ? SteadyTime::max() : now_ + left, true);
}

/// A wait that ends when the waking clock reaches `due` (max: never); one that counts sleep is moved by each suspend.
WaitCode VirtualWorld::Block(std::unique_lock<std::mutex>& lock, const std::vector<VirtualSignal*>& signals,
                             SteadyTime due, bool counts_sleep) {
  for (std::size_t i = 0; i < signals.size(); ++i) {
    if (signals[i]->TryConsume()) return static_cast<WaitCode>(i);
  }
  if (due <= now_) return kWaitTimeout;

  VirtualWait wait{.signals = signals,
                   .thread = Find(std::this_thread::get_id()),
                   .counts_sleep = counts_sleep,
                   .ended = {},
                   .due = {},
                   .drive = {},
                   .result = {}};
  try {
    for (VirtualSignal* signal : signals)
      signal->waits.push_back(&wait);
    if (due != SteadyTime::max()) {
      // Threads from outside come last: what the world does at that instant is done when their wait ends.
      const auto sequence = wait.thread ? wait.thread->sequence : std::numeric_limits<std::uint64_t>::max();
      wait.due = agenda_.emplace(AgendaKey(due, sequence, next_asking_++), &wait).first;
    }
    if (wait.thread == nullptr) wait.drive = drives_.insert(due);
  } catch (...) {  // a shortage of memory is played, too: nobody may find a wait that has gone
    for (VirtualSignal* signal : signals)
      std::erase(signal->waits, &wait);
    if (wait.due) agenda_.erase(*wait.due);
    throw;
  }

  if (wait.thread == nullptr) {
    DriveUntil(lock, [&] { return wait.result.has_value(); });
  } else {
    wait.thread->waiting = true;
    StopRunning();
    wait.ended.wait(lock, [&] { return wait.result.has_value(); });
  }
  return *wait.result;
}

/// Ends the wait that is due first, if the clock may go there; false: it may not, or nothing is due.
bool VirtualWorld::Step() {
  if (running_ > 0 || agenda_.empty() || drives_.empty()) return false;
  const auto& [key, wait] = *agenda_.begin();
  const SteadyTime time = std::get<SteadyTime>(key);
  if (time > *drives_.rbegin()) return false;
  now_ = std::max(now_, time);
  End(*wait, kWaitTimeout);
  return true;
}

/// The calling thread of the world waits or ends. The last one to do so moves the clock itself, which spares the change
/// to the driver and back that would make up most of a simulated day.
void VirtualWorld::StopRunning() {
  --running_;
  while (Step()) {
  }
  if (running_ == 0) changed_.notify_all();
}

void VirtualWorld::DriveUntil(std::unique_lock<std::mutex>& lock, const std::function<bool()>& reached) {
  while (!reached()) {
    if (!Step()) changed_.wait(lock);
  }
  changed_.notify_all();  // Another driver may have to take over.
}

std::thread VirtualWorld::StartThread(std::string_view name, std::function<void()> body) {
  const auto state = std::make_shared<VirtualThread>();
  state->name = name.substr(0, 15);
  // Held until the thread is listed, so that it finds itself there whatever it does first.
  const auto lock = Lock();
  if (refuses_threads_) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  threads_.reserve(threads_.size() + 1);
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
  const auto lock = Lock();
  std::erase_if(threads_, [&](const auto& other) { return other.get() == &thread; });
  thread.ended = true;
  Offer(thread);
  StopRunning();
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
  const SteadyTime target = DeadlineAfter(now_, duration);
  const auto drive = drives_.insert(target);
  DriveUntil(lock, [&] {
    return running_ == 0 && (agenda_.empty() || std::get<SteadyTime>(agenda_.begin()->first) > target);
  });
  drives_.erase(drive);
  now_ = std::max(now_, target);
}

void VirtualWorld::Suspend(milliseconds duration) {
  AdvanceBy(milliseconds(0));
  {
    const auto lock = Lock();
    const auto by = DeadlineAfter(ElapsedNow(), duration) - ElapsedNow();
    asleep_ += by;
    std::vector<VirtualWait*> waits;
    for (const auto& [key, wait] : agenda_) {
      if (wait->counts_sleep) waits.push_back(wait);
    }
    for (VirtualWait* const wait : waits)
      MoveForward(*wait, by);
  }
  AdvanceBy(milliseconds(0));
}

void VirtualWorld::MoveForward(VirtualWait& wait, std::chrono::nanoseconds by) {
  auto entry = agenda_.extract(*wait.due);
  SteadyTime& due = std::get<SteadyTime>(entry.key());
  due -= by;
  if (wait.drive) {
    drives_.erase(*wait.drive);
    wait.drive = drives_.insert(due);
  }
  wait.due = agenda_.insert(std::move(entry)).position;
}

void VirtualWorld::RefuseThreads(bool refuse) {
  const auto lock = Lock();
  refuses_threads_ = refuse;
}

}  // namespace platform

#include "platform/simulated/virtual_runtime.h"

#include <map>
#include <stdexcept>
#include <system_error>

#include "platform/simulated/virtual_world.h"

namespace platform {
namespace {

struct EventState final : VirtualSignal {
  EventState(EventReset event_reset, bool is_signalled) : reset(event_reset), signalled(is_signalled) {}

  bool TryConsume() override {
    const bool was = signalled;
    if (reset == EventReset::kAuto) signalled = false;
    return was;
  }

  const EventReset reset;
  bool signalled;
};

struct SemaphoreState final : VirtualSignal {
  SemaphoreState(std::uint32_t initial, std::uint32_t highest) : count(initial), maximum(highest) {}

  bool TryConsume() override {
    if (count == 0) return false;
    --count;
    return true;
  }

  std::uint32_t count;
  const std::uint32_t maximum;
};

/// What WaitAny finds behind the Waitables of this runtime.
class SignalHolder {
 public:
  SignalHolder() = default;
  SignalHolder(const SignalHolder&) = delete;
  SignalHolder& operator=(const SignalHolder&) = delete;
  virtual ~SignalHolder() = default;
  virtual VirtualSignal& signal() = 0;
};

class VirtualEvent final : public Event, public SignalHolder {
 public:
  VirtualEvent(VirtualWorld& world, std::shared_ptr<EventState> state) : world_(world), state_(std::move(state)) {}

  void Set() override {
    const auto lock = world_.Lock();
    state_->signalled = true;
    world_.Offer(*state_);
  }

  void Reset() override {
    const auto lock = world_.Lock();
    state_->signalled = false;
  }

  VirtualSignal& signal() override { return *state_; }

 private:
  VirtualWorld& world_;
  const std::shared_ptr<EventState> state_;  ///< Shared by all that opened the event by its name.
};

class VirtualSemaphore final : public Semaphore, public SignalHolder {
 public:
  VirtualSemaphore(VirtualWorld& world, std::uint32_t initial, std::uint32_t maximum)
      : world_(world), state_(initial, maximum) {}

  std::uint32_t Release(std::uint32_t count) override {
    const auto lock = world_.Lock();
    if (count > state_.maximum - state_.count) return kErrorTooManyPosts;
    state_.count += count;
    world_.Offer(state_);
    return 0;
  }

  VirtualSignal& signal() override { return state_; }

 private:
  VirtualWorld& world_;
  SemaphoreState state_;
};

/// Empty when the objects cannot be waited for.
std::vector<VirtualSignal*> SignalsOf(std::span<Waitable* const> objects) {
  if (objects.size() > kMaximumWaitObjects) return {};
  std::vector<VirtualSignal*> signals;
  signals.reserve(objects.size());
  for (Waitable* object : objects) {
    auto* const holder = dynamic_cast<SignalHolder*>(object);
    if (holder == nullptr) return {};
    signals.push_back(&holder->signal());
  }
  return signals;
}

NamedEventResult Failure(std::errc error) {
  return {nullptr, static_cast<std::uint32_t>(error)};
}

}  // namespace

class VirtualRuntime::NamedEvents {
 public:
  /// The event of that name that somebody still holds, or null.
  std::shared_ptr<EventState> Find(const std::wstring& name) const {
    const auto found = events_.find(name);
    return found == events_.end() ? nullptr : found->second.lock();
  }

  std::shared_ptr<EventState> FindOrMake(const std::wstring& name, EventReset reset, bool signalled) {
    std::shared_ptr<EventState> event = Find(name);
    if (event == nullptr) events_[name] = event = std::make_shared<EventState>(reset, signalled);
    return event;
  }

 private:
  std::map<std::wstring, std::weak_ptr<EventState>> events_;
};

VirtualRuntime::VirtualRuntime(VirtualRuntimeOptions options)
    : world_(std::make_unique<VirtualWorld>(options)), named_events_(std::make_unique<NamedEvents>()) {}

VirtualRuntime::~VirtualRuntime() = default;

const Clock& VirtualRuntime::clock() const {
  return *world_;
}

std::unique_ptr<Event> VirtualRuntime::MakeEvent(EventReset reset, bool signalled) {
  return std::make_unique<VirtualEvent>(*world_, std::make_shared<EventState>(reset, signalled));
}

NamedEventResult VirtualRuntime::MakeNamedEvent(std::wstring_view name, EventReset reset, bool signalled,
                                                EventAccess /*one account*/) {
  if (name.empty()) return Failure(std::errc::invalid_argument);
  const auto lock = world_->Lock();
  auto state = named_events_->FindOrMake(std::wstring(name), reset, signalled);
  return {std::make_unique<VirtualEvent>(*world_, std::move(state)), 0};
}

NamedEventResult VirtualRuntime::OpenNamedEvent(std::wstring_view name) {
  const auto lock = world_->Lock();
  auto state = named_events_->Find(std::wstring(name));
  if (state == nullptr) return Failure(std::errc::no_such_file_or_directory);
  return {std::make_unique<VirtualEvent>(*world_, std::move(state)), 0};
}

std::unique_ptr<Semaphore> VirtualRuntime::MakeSemaphore(std::uint32_t initial, std::uint32_t maximum) {
  if (maximum == 0 || initial > maximum) throw std::invalid_argument("semaphore: 0 <= initial <= maximum, maximum > 0");
  return std::make_unique<VirtualSemaphore>(*world_, initial, maximum);
}

WaitCode VirtualRuntime::WaitAny(std::span<Waitable* const> objects, milliseconds timeout) {
  const auto signals = SignalsOf(objects);
  return signals.empty() ? kWaitFailed : world_->Wait(signals, timeout);
}

WaitCode VirtualRuntime::WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) {
  const auto signals = SignalsOf(objects);
  return signals.empty() ? kWaitFailed : world_->WaitUntil(signals, deadline);
}

std::thread VirtualRuntime::StartThread(std::string_view name, std::function<void()> body) {
  return world_->StartThread(name, std::move(body));
}

void VirtualRuntime::Join(std::thread& thread) {
  world_->Join(thread);
}

void VirtualRuntime::AdvanceBy(milliseconds duration) {
  world_->AdvanceBy(duration);
}
void VirtualRuntime::Suspend(milliseconds duration) {
  world_->Suspend(duration);
}
void VirtualRuntime::RefuseThreads(bool refuse) {
  world_->RefuseThreads(refuse);
}
void VirtualRuntime::Settle() {
  world_->AdvanceBy(milliseconds(0));
}
std::vector<VirtualThreadState> VirtualRuntime::Threads() const {
  return world_->Threads();
}
std::uint64_t VirtualRuntime::WakeUps() const {
  return world_->WakeUps();
}

}  // namespace platform

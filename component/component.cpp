#include "tvk/component.h"

#include <cstddef>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "component/process_composition.h"
#include "platform/service_control_event.h"
#include "platform/this_program.h"
#include "tvk/event_manager.h"

namespace {

/// The process's manager: an ordinary one on the process's services, which hears of the system's events and of other
/// processes.
class ProcessEventManager final : public EventManager {
 public:
  ProcessEventManager(TVK::ProcessComposition& process, SERVICE_STATUS_HANDLE handle)
      : EventManager(process.composition().manager_services(), handle), composition_(process.composition()) {
    composition_.FollowSystemEvents([this](const platform::SystemEvent& event) { OnSystemEvent(event); }, handle);
    composition_.ServeChannel(&access(), process.channel_place());
  }
  ~ProcessEventManager() override {
    composition_.ServeChannel(nullptr);
    composition_.FollowSystemEvents(nullptr, nullptr);
  }
  ProcessEventManager(const ProcessEventManager&) = delete;
  ProcessEventManager& operator=(const ProcessEventManager&) = delete;

  void StopUnlessStopped() {
    if (is_initialized()) Stop();
  }

 private:
  TVK::Composition& composition_;
};

struct ProcessSlot {
  std::mutex mutex;  // guards what follows
  std::unique_ptr<TVK::ProcessComposition> process;
  std::unique_ptr<ProcessEventManager> manager;
  bool closes_at_exit = false;
};

// Never destroyed: where a process ends without Close, its threads may use it to the last. Needs no memory.
ProcessSlot& Slot() {
  alignas(ProcessSlot) static std::byte place[sizeof(ProcessSlot)];
  static auto* const slot = new (place) ProcessSlot;
  return *slot;
}

// Silent where it cannot be opened.
TVK::Log ManagerLog() {
  TVK::Log log;
  TVK::CallLogged(log, L"InitLog", [&] { TVK::utility::InitLog(log, TVK::ServiceLog(L"EventManager.log"), 4); });
  return log;
}

// False when nothing is open, and when `call` throws, which is logged.
template <typename Call>
bool CallIfOpen(const wchar_t* name, Call&& call) {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process == nullptr) return false;
  return TVK::CallLogged(ManagerLog(), name, [&] { call(Slot().process->composition()); });
}

// Without a message where there is no memory for one.
TVK::ComponentResult NotReady(TVK::ComponentOutcome outcome, const char* message) {
  TVK::ComponentResult result{outcome, {}};
  TVK::CallLogged(TVK::Log(), L"NotReady", [&] { result.message = message; });
  return result;
}

}  // namespace

TVK::ComponentResult TVK::Component::Open(const ComponentOptions& options, RecordObserver observer,
                                          RemarkObserver remarks) {
  // One that is not ready ends when the lock is free: its threads may be in a call that takes it.
  std::unique_ptr<TVK::ProcessComposition> process;
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process != nullptr) return NotReady(ComponentOutcome::kFailed, "the component is open already");
  ComponentResult result;
  try {
    process = TVK::ProcessComposition::Open(options, std::move(observer), std::move(remarks), result);
    if (result.outcome == ComponentOutcome::kReady) {
      // Behind the opening: what came to be in it is destroyed after Close.
      if (!std::exchange(Slot().closes_at_exit, true)) platform::CallAtExit([] { Close(); });
      Slot().process = std::move(process);
    }
  } catch (const std::invalid_argument& mistake) {
    result = NotReady(ComponentOutcome::kWrongConfiguration, mistake.what());
  } catch (const std::exception& failure) {
    result = NotReady(ComponentOutcome::kFailed, FailureText(failure));
  } catch (...) {
    result = NotReady(ComponentOutcome::kFailed, "unknown exception");
  }
  if (Slot().process == nullptr) SetLogBackend(nullptr);
  return result;
}

TVK::DeviceIdAgent* TVK::Component::device_id_agent() {
  const std::lock_guard lock(Slot().mutex);
  return Slot().process == nullptr ? nullptr : &Slot().process->composition().machine_services().device_ids;
}

void TVK::Component::RereadPolicy() {
  CallIfOpen(L"Component::RereadPolicy", [](Composition& composition) { composition.RereadPolicy(); });
}

void TVK::Component::OnUserLogon() {
  CallIfOpen(L"Component::OnUserLogon", [](Composition& composition) { composition.OnUserLogon(); });
}

void TVK::Component::OnSessionChange(unsigned long event_type, unsigned long session) {
  const std::optional<platform::SessionChange> change = platform::DecodeSessionChange(event_type, session);
  if (!change) return;
  CallIfOpen(L"Component::OnSessionChange", [&](Composition& composition) { composition.OnSessionChange(*change); });
}

bool TVK::Component::TellPolicyChange(PolicyNews news, const std::wstring& payload) {
  const int state = news == PolicyNews::kTelemetry ? kTelemetryPolicyChanged : kTvkPolicyChanged;
  return CallIfOpen(L"Component::TellPolicyChange", [&](Composition& composition) {
    composition.bus().Publish(TVKNotificationData(kPolicyTopic, state, payload));
  });
}

void TVK::Component::Close() {
  std::unique_ptr<ProcessEventManager> manager;
  std::unique_ptr<TVK::ProcessComposition> process;
  {
    const std::lock_guard lock(Slot().mutex);
    manager = std::move(Slot().manager);
    process = std::move(Slot().process);
  }
  if (process == nullptr) return;
  if (manager != nullptr) manager->StopUnlessStopped();
  manager = nullptr;
  process = nullptr;
  SetLogBackend(nullptr);
}

EventManager* EventManager::GetInstance(SERVICE_STATUS_HANDLE handle) {
  const std::lock_guard lock(Slot().mutex);
  ProcessSlot& slot = Slot();
  if (slot.process == nullptr) return nullptr;
  if (slot.manager == nullptr) {
    TVK::Composition& composition = slot.process->composition();
    TVK::CallLogged(ManagerLog(), L"EventManager::GetInstance", [&] {
      try {
        slot.manager = std::make_unique<ProcessEventManager>(*slot.process, handle);
      } catch (const std::exception& failure) {
        const auto& remark = composition.manager_services().remarks;
        if (remark) remark(std::string("the event manager cannot be made: ") + TVK::FailureText(failure));
        throw;
      }
    });
  }
  return slot.manager.get();
}

EventManager* EventManager::GetInstance() {
  return GetInstance(nullptr);
}

#include "tvk/component.h"

#include <functional>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/records/record_text.h"
#include "component/process_composition.h"
#include "platform/service_control_event.h"
#include "platform/this_program.h"
#include "tvk/event_manager.h"

namespace {

/// The process's manager: an ordinary one on the process's services, which hears of the system's events.
class ProcessEventManager final : public EventManager {
 public:
  ProcessEventManager(TVK::Composition& composition, SERVICE_STATUS_HANDLE handle)
      : EventManager(composition.manager_services(), handle), composition_(composition) {
    composition_.FollowSystemEvents([this](const platform::SystemEvent& event) { OnSystemEvent(event); }, handle);
  }
  ~ProcessEventManager() override { composition_.FollowSystemEvents(nullptr, nullptr); }
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

// Never destroyed: where a process ends without Close, its threads may use it to the last.
ProcessSlot& Slot() {
  static auto* const slot = new ProcessSlot;
  return *slot;
}

// False when nothing is open, and when `call` throws, which is logged.
bool CallIfOpen(const wchar_t* name, const std::function<void(TVK::Composition&)>& call) {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process == nullptr) return false;
  TVK::Log log;
  TVK::utility::InitLog(log, L"EventManager.log", 4);
  return TVK::CallLogged(log, name, [&] { call(Slot().process->composition()); });
}

}  // namespace

TVK::ComponentResult TVK::Component::Open(const ComponentOptions& options, RecordObserver observer,
                                          RemarkObserver remarks) {
  // One that is not ready ends when the lock is free: its threads may be in a call that takes it.
  std::unique_ptr<TVK::ProcessComposition> process;
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process != nullptr) return {ComponentOutcome::kFailed, "the component is open already"};
  ComponentResult result;
  try {
    process = TVK::ProcessComposition::Open(options, std::move(observer), std::move(remarks), result);
    if (result.outcome == ComponentOutcome::kReady) {
      // Behind the opening: what came to be in it is destroyed after Close.
      if (!std::exchange(Slot().closes_at_exit, true)) platform::CallAtExit([] { Close(); });
      Slot().process = std::move(process);
    }
  } catch (const std::invalid_argument& mistake) {
    result = {ComponentOutcome::kWrongConfiguration, mistake.what()};
  } catch (const std::bad_alloc&) {
    result = {ComponentOutcome::kFailed, "there is not enough memory"};
  } catch (const std::exception& failure) {
    result = {ComponentOutcome::kFailed, failure.what()};
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

std::string TVK::Component::RecordHeader() {
  return RecordTableHeader();
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
    TVK::Log log;
    TVK::utility::InitLog(log, L"EventManager.log", 4);
    TVK::CallLogged(log, L"EventManager::GetInstance",
                    [&] { slot.manager = std::make_unique<ProcessEventManager>(slot.process->composition(), handle); });
  }
  return slot.manager.get();
}

EventManager* EventManager::GetInstance() {
  return GetInstance(nullptr);
}

#include "tvk/component.h"

#include <mutex>
#include <new>
#include <stdexcept>

#include "client/records/record_text.h"
#include "component/process_composition.h"
#include "platform/service_control_event.h"
#include "tvk/event_manager.h"

namespace {

struct ProcessSlot {
  std::mutex mutex;  // guards process
  std::unique_ptr<TVK::ProcessComposition> process;
};

// Never destroyed: the manager refers to it until the process ends, and joining threads while a library is being
// unloaded does not work everywhere. Close ends the threads.
ProcessSlot& Slot() {
  static auto* const slot = new ProcessSlot;
  return *slot;
}

/// The process's manager: an ordinary one on the process's services, which hears of the system's events.
class ProcessEventManager final : public EventManager {
 public:
  ProcessEventManager(const TVK::ManagerServices& services, SERVICE_STATUS_HANDLE handle)
      : EventManager(services, handle) {
    FollowSystemEvents([this](const platform::SystemEvent& event) { OnSystemEvent(event); });
  }
  ~ProcessEventManager() override { FollowSystemEvents(nullptr); }
  ProcessEventManager(const ProcessEventManager&) = delete;
  ProcessEventManager& operator=(const ProcessEventManager&) = delete;

 private:
  static void FollowSystemEvents(platform::SystemEventCallback receiver) {
    const std::lock_guard lock(Slot().mutex);
    if (Slot().process != nullptr) Slot().process->composition().FollowSystemEvents(std::move(receiver));
  }
};

}  // namespace

TVK::ComponentResult TVK::Component::Open(const ComponentOptions& options, RecordObserver observer,
                                          RemarkObserver remarks) {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process != nullptr) return {ComponentOutcome::kFailed, "the component is open already"};
  ComponentResult result;
  try {
    auto process = TVK::ProcessComposition::Open(options, std::move(observer), std::move(remarks), result);
    if (result.outcome == ComponentOutcome::kReady) Slot().process = std::move(process);
  } catch (const std::invalid_argument& mistake) {
    result = {ComponentOutcome::kWrongConfiguration, mistake.what()};
  } catch (const std::bad_alloc&) {
    result = {ComponentOutcome::kFailed, "there is not enough memory"};
  } catch (const std::exception& failure) {
    result = {ComponentOutcome::kFailed, failure.what()};
  }
  return result;
}

TVK::DeviceIdAgent* TVK::Component::device_id_agent() {
  const std::lock_guard lock(Slot().mutex);
  return Slot().process == nullptr ? nullptr : &Slot().process->composition().machine_services().device_ids;
}

void TVK::Component::RereadPolicy() {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process != nullptr) Slot().process->composition().RereadPolicy();
}

void TVK::Component::OnUserLogon() {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process != nullptr) Slot().process->composition().OnUserLogon();
}

void TVK::Component::OnSessionChange(unsigned long event_type, unsigned long session) {
  const std::optional<platform::SessionChange> change = platform::DecodeSessionChange(event_type, session);
  if (!change) return;
  const std::lock_guard lock(Slot().mutex);
  if (Slot().process != nullptr) Slot().process->composition().OnSessionChange(*change);
}

std::string TVK::Component::RecordHeader() {
  return RecordTableHeader();
}

void TVK::Component::Close() {
  std::unique_ptr<TVK::ProcessComposition> ended;
  {
    const std::lock_guard lock(Slot().mutex);
    ended = std::move(Slot().process);
  }
  ended = nullptr;
  SetLogBackend(nullptr);
}

EventManager* EventManager::GetInstance(SERVICE_STATUS_HANDLE handle) {
  static ProcessEventManager manager(
      [&]() -> const TVK::ManagerServices& {
        const std::lock_guard lock(Slot().mutex);
        // A host that does not set the component up gets the default places, whatever state they are in.
        if (Slot().process == nullptr) {
          TVK::ComponentResult ignored;
          Slot().process = TVK::ProcessComposition::Open({}, {}, {}, ignored);
        }
        return Slot().process->composition().manager_services();
      }(),
      handle);
  if (manager.get_schema_ver().empty()) manager.set_schema_ver(L"2.0");
  return &manager;
}

EventManager* EventManager::GetInstance() {
  return GetInstance(nullptr);
}

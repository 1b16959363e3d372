#include "tvk/component.h"

#include <mutex>
#include <stdexcept>

#include "client/records/record_text.h"
#include "component/composition.h"
#include "tvk/event_manager.h"

namespace {

struct ProcessSlot {
  std::mutex mutex;  // guards composition
  std::unique_ptr<Composition> composition;
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
  ProcessEventManager(const ManagerServices& services, SERVICE_STATUS_HANDLE handle) : EventManager(services, handle) {
    FollowSystemEvents([this](const platform::SystemEvent& event) { OnSystemEvent(event); });
  }
  ~ProcessEventManager() override { FollowSystemEvents(nullptr); }
  ProcessEventManager(const ProcessEventManager&) = delete;
  ProcessEventManager& operator=(const ProcessEventManager&) = delete;

 private:
  static void FollowSystemEvents(platform::SystemEventCallback receiver) {
    const std::lock_guard lock(Slot().mutex);
    if (Slot().composition != nullptr) Slot().composition->FollowSystemEvents(std::move(receiver));
  }
};

}  // namespace

TVK::ComponentResult TVK::Component::Open(const ComponentOptions& options, RecordObserver observer,
                                          RemarkObserver remarks) {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().composition != nullptr) return {ComponentOutcome::kFailed, "the component is open already"};
  ComponentResult result;
  try {
    auto composition = Composition::Open(options, std::move(observer), std::move(remarks), result);
    if (result.outcome == ComponentOutcome::kReady) Slot().composition = std::move(composition);
  } catch (const std::invalid_argument& mistake) {
    result = {ComponentOutcome::kWrongConfiguration, mistake.what()};
  } catch (const std::exception& failure) {
    result = {ComponentOutcome::kFailed, failure.what()};
  }
  return result;
}

TVK::DeviceIdAgent* TVK::Component::device_id_agent() {
  const std::lock_guard lock(Slot().mutex);
  return Slot().composition == nullptr ? nullptr : &Slot().composition->device_id_agent();
}

void TVK::Component::RereadPolicy() {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().composition != nullptr) Slot().composition->RereadPolicy();
}

void TVK::Component::OnUserLogon() {
  const std::lock_guard lock(Slot().mutex);
  if (Slot().composition != nullptr) Slot().composition->OnUserLogon();
}

std::string TVK::Component::RecordHeader() {
  return RecordTableHeader();
}

void TVK::Component::Close() {
  std::unique_ptr<Composition> ended;
  {
    const std::lock_guard lock(Slot().mutex);
    ended = std::move(Slot().composition);
  }
  ended = nullptr;
  SetLogBackend(nullptr);
}

EventManager* EventManager::GetInstance(SERVICE_STATUS_HANDLE handle) {
  static ProcessEventManager manager(
      [&]() -> const ManagerServices& {
        const std::lock_guard lock(Slot().mutex);
        // A host that does not set the component up gets the default places, whatever state they are in.
        if (Slot().composition == nullptr) {
          TVK::ComponentResult ignored;
          Slot().composition = Composition::Open({}, {}, {}, ignored);
        }
        return Slot().composition->manager_services();
      }(),
      handle);
  if (manager.get_schema_ver().empty()) manager.set_schema_ver(L"2.0");
  return &manager;
}

EventManager* EventManager::GetInstance() {
  return GetInstance(nullptr);
}

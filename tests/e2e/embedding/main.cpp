// usage: embedding POLICY-FILE [stop | no-stop | in-stop]
// Hosts the component as another program does: opened too early, in vain, twice, and again elsewhere; each time until a
// record of a monitor was written. With "no-stop" the process ends while monitors run, with "in-stop" while the manager
// stops. Exit code 0 when all went well.
#include <tvk/component.h>
#include <tvk/event_manager.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <variant>

namespace {

using TVK::Component;
using TVK::ComponentOutcome;

bool Expect(bool holds, std::string_view what) {
  if (!holds) std::cerr << "not so: " << what << '\n';
  return holds;
}

TVK::ComponentOptions Below(const std::filesystem::path& folder, const char* policy) {
  return {.policy_file = policy, .data_folder = folder, .log_folder = {}, .sysroot = {}};
}

// Runs until a monitor's record is told of. It goes on when `stop` is false.
bool Run(const TVK::ComponentOptions& options, bool stop) {
  // Shared, since records are told as long as the component is open.
  const auto seen = std::make_shared<std::promise<void>>();
  const auto once = std::make_shared<std::once_flag>();
  const TVK::ComponentResult opened = Component::Open(options, [seen, once](const TVK::WrittenRecord& record) {
    std::cout << record.json << '\n';
    const auto* const event = std::get_if<ItemEvent>(&record.content);
    if (event != nullptr && event->item_name() == L"DeviceInit") std::call_once(*once, [&] { seen->set_value(); });
  });
  if (!Expect(opened.outcome == ComponentOutcome::kReady, opened.message)) return false;
  if (!Expect(Component::Open(options).outcome == ComponentOutcome::kFailed, "a second one is refused")) return false;
  EventManager* const manager = EventManager::GetInstance();
  if (!Expect(manager != nullptr && manager == EventManager::GetInstance(), "there is one manager")) return false;
  manager->Initialize(Component::device_id_agent());
  manager->InitAndStartEventMonitors();
  seen->get_future().wait();
  bool sound = Expect(!manager->get_device_context_id().empty(), "the manager has a device context");
  sound = Expect(!manager->get_eventmonitor_list().empty(), "monitors run") && sound;
  sound = Expect(Component::TellPolicyChange(TVK::PolicyNews::kClient, L"{\"isDevicePathChange\":false}"),
                 "the bus is there") &&
          sound;
  if (!stop) return sound;
  manager->Stop();
  sound = Expect(manager->get_eventmonitor_list().empty(), "nothing runs behind Stop") && sound;
  Component::Close();
  return Expect(EventManager::GetInstance() == nullptr, "there is no manager behind Close") && sound;
}

bool RunAll(const std::filesystem::path& folder, const char* policy) {
  bool sound = Expect(EventManager::GetInstance() == nullptr, "nothing opens by itself");
  sound = Expect(!Component::TellPolicyChange(TVK::PolicyNews::kTelemetry, L""), "there is no bus") && sound;
  TVK::ComponentOptions nowhere = Below(folder / "in vain", policy);
  nowhere.sysroot = folder / "absent";
  sound = Expect(Component::Open(nowhere).outcome == ComponentOutcome::kWrongConfiguration, "refused") && sound;
  sound = Expect(EventManager::GetInstance() == nullptr, "what was refused is not open") && sound;
  sound = Run(Below(folder / "first", policy), true) && sound;
  return Run(Below(folder / "second", policy), true) && sound;
}

}  // namespace

int main(int count, char** texts) {
  if (count < 2) return 1;
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("tvk-embedding-" + std::to_string(std::random_device()()));
  if (count == 3 && std::string_view(texts[2]) == "no-stop") {
    // The folder stays: it is in use to the end.
    return Run(Below(folder, texts[1]), false) ? 0 : 3;
  }
  if (count == 3 && std::string_view(texts[2]) == "in-stop") {
    const bool sound = Run(Below(folder, texts[1]), false);
    std::thread stopping([] { EventManager::GetInstance()->Stop(); });
    stopping.detach();
    std::_Exit(sound ? 0 : 3);
  }
  const bool sound = RunAll(folder, texts[1]);
  std::filesystem::remove_all(folder);
  return sound ? 0 : 3;
}

// usage: embedding POLICY-FILE
// Runs the component inside this process until a record of a monitor was written. Exit code 0 when all went well.
#include <tvk/component.h>
#include <tvk/event_manager.h>

#include <filesystem>
#include <future>
#include <iostream>
#include <mutex>
#include <random>

namespace {

int Run(const TVK::ComponentOptions& options) {
  std::promise<void> seen;
  std::once_flag once;
  const TVK::ComponentResult opened = TVK::Component::Open(options, [&](const std::string& line) {
    std::cout << line;
    if (line.find("DeviceInit") != std::string::npos) std::call_once(once, [&] { seen.set_value(); });
  });
  if (opened.outcome != TVK::ComponentOutcome::kReady) {
    std::cerr << opened.message << '\n';
    return 2;
  }
  EventManager* const manager = EventManager::GetInstance();
  manager->Initialize(TVK::Component::device_id_agent());
  manager->InitAndStartEventMonitors();
  seen.get_future().wait();
  const bool known = !manager->get_device_context_id().empty() && !manager->get_eventmonitor_list().empty();
  manager->Stop();
  TVK::Component::Close();
  if (!known) std::cerr << "the manager has no device context or no monitor\n";
  return known && manager->get_eventmonitor_list().empty() ? 0 : 3;
}

}  // namespace

int main(int count, char** texts) {
  if (count != 2) return 1;
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("tvk-embedding-" + std::to_string(std::random_device()()));
  const int code = Run({.policy_file = texts[1], .data_folder = folder, .log_folder = {}, .sysroot = {}});
  std::filesystem::remove_all(folder);
  return code;
}

#include "platform/linux/setting_watcher_linux.h"

#include "platform/fact_settings.h"
#include "platform/file_watcher.h"

namespace platform {
namespace {

class LinuxSettingWatcher final : public FactSettings {
 public:
  using FactSettings::FactSettings;

  // The locale is the system's own: it is there whoever is logged on.
  bool HasUser() override { return true; }

  bool Start(const Sysroot& root, Runtime& runtime) {
    std::vector<std::filesystem::path> files;
    // The second stands in for the first where that is missing.
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release", "/etc/default/locale", "/etc/locale.conf"})
      files.push_back(root.Resolve(file));
    watcher_ = FileWatcher::Watch(runtime, std::move(files), [this] { TellAll(); });
    return watcher_ != nullptr;
  }

 private:
  std::unique_ptr<FileWatcher> watcher_;  ///< Ends before the settings that it tells of.
};

}  // namespace

std::unique_ptr<SettingWatcher> WatchFactFiles(Machine& machine, const Sysroot& root, Runtime& runtime,
                                               SettingChange on_change) {
  auto watcher = std::make_unique<LinuxSettingWatcher>(machine, std::move(on_change));
  return watcher->Start(root, runtime) ? std::move(watcher) : nullptr;
}

}  // namespace platform

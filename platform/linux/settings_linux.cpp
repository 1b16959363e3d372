#include "platform/fact_settings.h"
#include "platform/file_watcher.h"
#include "platform/linux/doors_linux.h"

namespace platform {
namespace {

/// Watches the files that name the system and its locale.
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

class LinuxSettings final : public Settings {
 public:
  LinuxSettings(const Sysroot& root, SystemFacts& system, Region& region)
      : root_(root), system_(system), region_(region) {}

  std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& runtime, SettingCallbacks callbacks) override {
    auto watcher = std::make_unique<LinuxSettingWatcher>(system_, region_, std::move(callbacks));
    return watcher->Start(root_, runtime) ? std::move(watcher) : nullptr;
  }

 private:
  const Sysroot root_;
  SystemFacts& system_;
  Region& region_;
};

}  // namespace

std::unique_ptr<Settings> MakeSettings(const Sysroot& root, SystemFacts& system, Region& region) {
  return std::make_unique<LinuxSettings>(root, system, region);
}

}  // namespace platform

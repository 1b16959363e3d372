#include "host/reg_monitor.h"

#include <algorithm>
#include <utility>

#include "client/text/string.h"

namespace TVK {

CRegMonitor::CRegMonitor(platform::Settings& settings, platform::Runtime& runtime)
    : settings_(settings),
      runtime_(runtime),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      changed_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

bool CRegMonitor::Init(Trouble trouble) {
  const auto changed = [this](platform::Setting setting) {
    {
      const std::lock_guard lock(mutex_);
      pending_.insert(setting);
    }
    changed_->Set();
  };
  watcher_ = settings_.OpenWatcher(runtime_, {.changed = changed, .trouble = std::move(trouble)});
  return watcher_ != nullptr;
}

int CRegMonitor::AddMonitorKey(platform::Setting setting) {
  if (const std::uint32_t error = watcher_->Add(setting); error != 0) return -static_cast<int>(error);
  const std::lock_guard lock(mutex_);
  keys_.push_back(setting);
  return static_cast<int>(keys_.size());
}

bool CRegMonitor::WaitForChange(unsigned long& index) {
  platform::Waitable* const objects[] = {stop_.get(), changed_.get()};
  while (runtime_.WaitAny(objects, platform::kForever) == 1) {
    const std::lock_guard lock(mutex_);
    if (pending_.empty()) continue;
    const auto key = std::ranges::find(keys_, *pending_.begin());
    pending_.erase(pending_.begin());
    if (!pending_.empty()) changed_->Set();
    // One that changes while it is being added has no index yet, and is read when it has.
    if (key == keys_.end()) continue;
    index = static_cast<unsigned long>(key - keys_.begin()) + 1;
    return true;
  }
  return false;
}

unsigned long CRegMonitor::GetKeyValue(unsigned long index, std::wstring& value) {
  std::string text;
  const std::uint32_t error = watcher_->Read(SettingOf(index), text);
  value = String::UTF8ToUTF16(text);
  return error;
}

platform::Setting CRegMonitor::SettingOf(unsigned long index) const {
  const std::lock_guard lock(mutex_);
  return keys_.at(index - 1);
}

bool CRegMonitor::HasUser() {
  return watcher_->HasUser();
}
void CRegMonitor::OnSessionChange(const platform::SessionChange& change) {
  watcher_->OnSessionChange(change);
}
void CRegMonitor::Stop() {
  stop_->Set();
}

}  // namespace TVK

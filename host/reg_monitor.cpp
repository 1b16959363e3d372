#include "host/reg_monitor.h"

#include <cstring>

#include "client/text/string.h"

namespace TVK {
namespace {

constexpr int kErrorMoreData = 234;
constexpr unsigned long kTypeText = 1;  // REG_SZ

}  // namespace

CRegMonitor::CRegMonitor(platform::Settings& settings, platform::Runtime& runtime)
    : settings_(settings),
      runtime_(runtime),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      changed_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

bool CRegMonitor::Init() {
  watcher_ = settings_.OpenWatcher(runtime_, [this](int index) {
    {
      const std::lock_guard lock(mutex_);
      pending_.insert(index);
    }
    changed_->Set();
  });
  return watcher_ != nullptr;
}

int CRegMonitor::AddMonitorKey(platform::SettingRoot root, const wchar_t* subkey, const wchar_t* value_name) {
  const int index = watcher_->Add(root, subkey, value_name);
  if (index < 0) return index;
  const std::lock_guard lock(mutex_);
  if (keys_.size() < static_cast<std::size_t>(index)) keys_.resize(static_cast<std::size_t>(index));
  keys_[static_cast<std::size_t>(index) - 1] = {subkey, value_name};
  return index;
}

bool CRegMonitor::WaitForChange(unsigned long& index) {
  platform::Waitable* const objects[] = {stop_.get(), changed_.get()};
  while (runtime_.WaitAny(objects, platform::kForever) == 1) {
    const std::lock_guard lock(mutex_);
    if (pending_.empty()) continue;
    index = static_cast<unsigned long>(*pending_.begin());
    pending_.erase(pending_.begin());
    if (!pending_.empty()) changed_->Set();
    return true;
  }
  return false;
}

int CRegMonitor::GetKeyValue(int index, unsigned char* buffer, unsigned long* size, unsigned long* type) {
  std::string text;
  if (const std::uint32_t error = watcher_->Read(index, text); error != 0) return static_cast<int>(error);
  const std::wstring wide = String::UTF8ToUTF16(text);
  const std::size_t needed = (wide.size() + 1) * sizeof(wchar_t);
  const bool fits = needed <= *size;
  *size = static_cast<unsigned long>(needed);
  if (type != nullptr) *type = kTypeText;
  if (!fits) return kErrorMoreData;
  std::memcpy(buffer, wide.c_str(), needed);
  return 0;
}

CRegMonitor::Key CRegMonitor::KeyOf(int index) const {
  const std::lock_guard lock(mutex_);
  return index >= 1 && static_cast<std::size_t>(index) <= keys_.size() ? keys_[static_cast<std::size_t>(index) - 1]
                                                                       : Key{};
}

std::wstring CRegMonitor::GetMonitorValueNameKey(int index) const {
  return KeyOf(index).name;
}
std::wstring CRegMonitor::GetMonitorPathRunKey(int index) const {
  return KeyOf(index).path;
}
bool CRegMonitor::HasUser() {
  return watcher_->HasUser();
}
void CRegMonitor::FollowUser() {
  watcher_->FollowUser();
}
void CRegMonitor::Stop() {
  stop_->Set();
}

}  // namespace TVK

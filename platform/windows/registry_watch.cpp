#include "platform/windows/registry_watch.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace platform::windows {
namespace {

// Armed on one thread and waited for on others: without the last flag the watch would end with the arming thread.
constexpr DWORD kNames = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_THREAD_AGNOSTIC;
constexpr DWORD kNamesAndValues = kNames | REG_NOTIFY_CHANGE_LAST_SET;

// The path of the key above; empty when that is the root.
std::wstring Above(const std::wstring& path) {
  const std::size_t end = path.rfind(L'\\');
  return path.substr(0, end == std::wstring::npos ? 0 : end);
}

bool MeansGone(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_KEY_DELETED;
}

}  // namespace

DWORD RegistryNotices::Open(HKEY root, const wchar_t* path, HKEY* key) {
  return static_cast<DWORD>(RegOpenKeyExW(root, path, 0, KEY_NOTIFY, key));
}

DWORD RegistryNotices::Arm(HKEY key, DWORD what, HANDLE signal) {
  return static_cast<DWORD>(RegNotifyChangeKeyValue(key, FALSE, what, signal, TRUE));
}

void RegistryNotices::Close(HKEY key) {
  RegCloseKey(key);
}

RegistryNotices& LocalRegistryNotices() {
  static RegistryNotices notices;
  return notices;
}

RegistryWatch::RegistryWatch(RegistryNotices& notices, HKEY root, std::chrono::milliseconds first_pause,
                             Callbacks callbacks)
    : notices_(notices),
      root_(root),
      first_pause_(first_pause),
      callbacks_(std::move(callbacks)),
      wait_(CreateThreadpoolWait(&RegistryWatch::OnSignal, this, nullptr)),
      timer_(CreateThreadpoolTimer(&RegistryWatch::OnPauseOver, this, nullptr)),
      pause_(first_pause) {
  if (!wait_ || !timer_) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThreadpoolWait");
  }
}

RegistryWatch::~RegistryWatch() {
  Release();
  WaitForThreadpoolWaitCallbacks(wait_.get(), TRUE);
  WaitForThreadpoolTimerCallbacks(timer_.get(), TRUE);
}

void RegistryWatch::Follow(const std::wstring& path) {
  std::optional<DWORD> trouble;
  {
    const std::lock_guard lock(mutex_);
    path_ = path;
    pause_ = first_pause_;
    trouble = Renew();
  }
  Tell(trouble);
}

void RegistryWatch::Release() {
  const std::lock_guard lock(mutex_);
  path_.clear();
  failing_ = false;
  Drop();
}

void CALLBACK RegistryWatch::OnSignal(PTP_CALLBACK_INSTANCE, void* watch, PTP_WAIT, TP_WAIT_RESULT) {
  static_cast<RegistryWatch*>(watch)->RenewAndTell();
}

void CALLBACK RegistryWatch::OnPauseOver(PTP_CALLBACK_INSTANCE, void* watch, PTP_TIMER) {
  static_cast<RegistryWatch*>(watch)->RenewAndTell();
}

void RegistryWatch::RenewAndTell() {
  std::optional<DWORD> trouble;
  {
    const std::lock_guard lock(mutex_);
    if (path_.empty()) return;
    trouble = Renew();
  }
  Tell(trouble);
  callbacks_.changed();
}

void RegistryWatch::Tell(std::optional<DWORD> trouble) const {
  if (trouble) callbacks_.trouble(*trouble);
}

std::optional<DWORD> RegistryWatch::Renew() {
  const DWORD error = Arm();
  if (error == ERROR_SUCCESS) {
    SetThreadpoolTimer(timer_.get(), nullptr, 0, 0);
    pause_ = first_pause_;
    return std::exchange(failing_, false) ? std::optional(error) : std::nullopt;
  }
  Drop();
  // Negative: from now on, in 100 ns.
  ULARGE_INTEGER due;
  due.QuadPart = static_cast<ULONGLONG>(-pause_.count() * 10'000);
  FILETIME time{due.LowPart, due.HighPart};
  SetThreadpoolTimer(timer_.get(), &time, 0, 0);
  pause_ = std::min(pause_ * 2, kLongestPause);
  return std::exchange(failing_, true) ? std::nullopt : std::optional(error);
}

void RegistryWatch::Drop() {
  SetThreadpoolWait(wait_.get(), nullptr, nullptr);
  SetThreadpoolTimer(timer_.get(), nullptr, 0, 0);
  keys_.clear();
  signal_.Reset();
}

DWORD RegistryWatch::ArmKey(const std::wstring& path, DWORD what, HANDLE signal, std::vector<OpenKey>& keys) {
  HKEY opened = nullptr;
  if (const DWORD error = notices_.Open(root_, path.c_str(), &opened); error != ERROR_SUCCESS) return error;
  keys.emplace_back(opened, KeyCloser{&notices_});
  return notices_.Arm(opened, what, signal);
}

// Keys come late when a user's part of the registry is loaded, and go with it.
DWORD RegistryWatch::Arm() {
  std::wstring path = path_;
  std::wstring missing;  // the key below `path` that was not there
  for (;;) {
    UniqueKernelHandle signal(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!signal) return GetLastError();
    std::vector<OpenKey> keys;
    const std::wstring above = Above(path);
    DWORD error = ArmKey(path, kNamesAndValues, signal.get(), keys);
    // Not every system tells of the end of a watched key, but every one of a name that goes. A key above that may not
    // be watched is done without.
    if (error == ERROR_SUCCESS && !above.empty() && MeansGone(ArmKey(above, kNames, signal.get(), keys))) {
      error = ERROR_KEY_DELETED;
    }
    if (error == ERROR_SUCCESS) {
      // One that came before the key above it was watched is told by nobody.
      HKEY come = nullptr;
      if (!missing.empty() && notices_.Open(root_, missing.c_str(), &come) == ERROR_SUCCESS) {
        notices_.Close(come);
        missing.clear();
        path = path_;
        continue;
      }
      SetThreadpoolWait(wait_.get(), signal.get(), nullptr);
      keys_ = std::move(keys);
      signal_ = std::move(signal);
      return ERROR_SUCCESS;
    }
    if (!MeansGone(error) || above.empty()) return error;
    missing = path;
    path = above;
  }
}

}  // namespace platform::windows

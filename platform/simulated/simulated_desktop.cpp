#include "platform/simulated/simulated_desktop.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

constexpr std::uint32_t kErrorFileNotFound = 2;  // ERROR_FILE_NOT_FOUND
constexpr std::uint32_t kErrorNoClass = 1411;    // ERROR_CLASS_DOES_NOT_EXIST

/// Counts itself.
class Counted final : public WindowNotices {
 public:
  explicit Counted(std::atomic<int>& count) : count_(count) { ++count_; }
  ~Counted() override { --count_; }

 private:
  std::atomic<int>& count_;
};

}  // namespace

SimulatedDesktop::SimulatedDesktop(Runtime& runtime)
    : runtime_(runtime), posted_(runtime.MakeEvent(EventReset::kAuto)) {}

std::optional<SimulatedDesktop::Answer> SimulatedDesktop::Send(std::uint32_t id, std::uintptr_t wparam,
                                                               std::intptr_t lparam) {
  Answer answer;
  const auto done = runtime_.MakeEvent(EventReset::kManual);
  {
    const std::lock_guard lock(mutex_);
    if (window_.empty()) return std::nullopt;
    sent_.push_back({{this, id, wparam, lparam}, &answer, done.get()});
  }
  posted_->Set();
  runtime_.Wait(*done, kForever);
  return answer;
}

bool SimulatedDesktop::has_window() const {
  const std::lock_guard lock(mutex_);
  return !window_.empty();
}

NamedEventResult SimulatedDesktop::OpenSessionEvent(std::wstring_view name, EventRights rights) {
  if (Get().denied_events.contains(std::wstring(name))) return {nullptr, kErrorFileNotFound};
  if (rights == EventRights::kAll) ++opened_for_all;
  return runtime_.OpenNamedEvent(name);
}

bool SimulatedDesktop::ServiceRuns(std::wstring_view program, std::wstring_view) {
  const SimulatedSession session = Get();
  return std::any_of(session.programs.begin(), session.programs.end(), [&](const auto& running) {
    return running.second == program && !session.strangers.contains(running.first);
  });
}

SimulatedDesktop::Answer SimulatedDesktop::Handle(const WindowProcedure& procedure, WindowMessage message) {
  const auto result = procedure(message);
  if (!result && message.id == kMessageClose) procedure({this, kMessageDestroy, 0, 0});
  return {!result.has_value(), result.value_or(0)};
}

std::optional<int> SimulatedDesktop::RunWindow(const std::wstring& name, const WindowProcedure& procedure) {
  if (Get().refuses_windows) return std::nullopt;
  quits_ = false;
  {
    const std::lock_guard lock(mutex_);
    procedure_ = &procedure;
    thread_ = std::this_thread::get_id();
  }
  procedure({this, kMessageCreate, 0, 0});
  {
    const std::lock_guard lock(mutex_);
    class_ = name;
    if (!quits_) window_ = name;
  }
  while (!quits_) {
    runtime_.Wait(*posted_, kForever);
    for (;;) {
      Sent sent{};
      {
        const std::lock_guard lock(mutex_);
        if (quits_) window_.clear();
        if (sent_.empty()) break;
        sent = sent_.front();
        sent_.pop_front();
      }
      *sent.answer = Handle(procedure, sent.message);
      sent.done->Set();
    }
  }
  const std::lock_guard lock(mutex_);
  procedure_ = nullptr;
  return 0;
}

bool SimulatedDesktop::CloseWindow(const std::wstring& title) {
  {
    const std::lock_guard lock(mutex_);
    if (window_ != title) return false;
  }
  return Send(kMessageClose).has_value();
}

std::uint32_t SimulatedDesktop::ForgetWindowClass(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  if (class_ != name) return kErrorNoClass;
  class_.clear();
  return 0;
}

std::size_t SimulatedDesktop::ReadMessageData(std::intptr_t /*lparam*/, std::span<std::uint8_t> into) {
  const std::vector<std::uint8_t> data = Get().message_data;
  const std::size_t size = std::min(data.size(), into.size());
  std::copy_n(data.begin(), size, into.begin());
  return size;
}

WindowNoticesResult SimulatedDesktop::RegisterForDisplays(void* window) {
  const WindowProcedure* procedure = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (thread_ == std::this_thread::get_id()) procedure = procedure_;
  }
  // The present values, before the wish is in force; a window's messages are answered by its own thread.
  if (procedure != nullptr) {
    (*procedure)({window, kMessagePowerBroadcast, kPowerSettingChange, 1});
  } else {
    Send(kMessagePowerBroadcast, kPowerSettingChange, 1);
  }
  return {std::make_unique<Counted>(display_notices), {}};
}

WindowNoticesResult SimulatedDesktop::RegisterForDigitizers(void* /*window*/) {
  return {std::make_unique<Counted>(digitizer_notices), {}};
}

std::optional<DigitizerKind> SimulatedDesktop::ReadInputKind(std::intptr_t /*lparam*/) {
  return Get().input;
}

std::optional<std::wstring> SimulatedDesktop::ReadProfile(const std::filesystem::path& /*file*/,
                                                          const std::wstring& /*section*/, const std::wstring& key,
                                                          std::size_t longest) {
  const SimulatedSession session = Get();
  if (!session.has_profile) return std::nullopt;
  const auto found = session.profile.find(key);
  return found == session.profile.end() ? std::wstring() : found->second.substr(0, longest);
}

std::uint32_t SimulatedDesktop::WriteProfile(const std::filesystem::path& /*file*/, const std::wstring& /*section*/,
                                             const std::wstring& key, const std::wstring& value) {
  Change([&](SimulatedSession& session) {
    session.has_profile = true;
    session.profile[key] = value;
  });
  return 0;
}

}  // namespace platform

#include "monitors/session/pen_event_monitor.h"

#include <utility>

#include "client/text/string.h"

using TVK::String;

namespace {

const std::wstring kDatasetId(TVK::kPenRow.id);

const wchar_t* Text(bool value) {
  return value ? L"true" : L"false";
}

TVK::ObservedDevice Observe(const platform::Digitizers& digitizers) {
  TVK::ObservedDevice device{{}, {{L"Pen", Text(digitizers.pen)}, {L"Touch", Text(digitizers.touch)}}};
  if (digitizers.touch_contacts != 0) {
    device.facts[L"TouchContacts"] = std::to_wstring(digitizers.touch_contacts);
  }
  return device;
}

int Describe(TVK::SessionRecorder& recorder, platform::Desktop& desktop) {
  return recorder.LogDatasetContext(kDatasetId, {Observe(desktop.ReadDigitizers())}, false);
}

}  // namespace

PenEventMonitor::PenEventMonitor(platform::Runtime& runtime, platform::Desktop& desktop, TVK::SessionRecorder& recorder,
                                 TVK::SessionWriter& writer)
    : runtime_(runtime), desktop_(desktop), recorder_(recorder), writer_(writer), interval_(runtime, "tvk-pen", [this] {
        WriteUse();
      }) {
  TVK::utility::InitLog(log_, L"PenEventMonitor.log", 4);
}

void PenEventMonitor::Register(void* window) {
  writer_.Post(
      kDatasetId,
      [&recorder = recorder_, &desktop = desktop_] {
        const int result = Describe(recorder, desktop);
        return result != 0 ? result : recorder.LogDevInitEvent(kDatasetId);
      },
      true);
  DropNotices();  // their end would take the new ones away, too
  platform::WindowNoticesResult result = desktop_.RegisterForDigitizers(window);
  if (!result.problem.empty()) {
    log_.e(L"PenEventMonitor: not everything is told: %s", String::UTF8ToUTF16(result.problem));
  }
  const std::lock_guard lock(mutex_);
  notices_ = std::move(result.notices);
}

void PenEventMonitor::DropNotices() {
  std::unique_ptr<platform::WindowNotices> notices;
  const std::lock_guard lock(mutex_);
  notices = std::move(notices_);
}

void PenEventMonitor::Unregister() {
  DropNotices();
  WriteUse();
}

void PenEventMonitor::Rest(bool rests) {
  const std::lock_guard lock(mutex_);
  rests_ = rests;
  if (rests) pen_ = touch_ = {};
}

void PenEventMonitor::OnInput(void* /*window*/, std::uintptr_t /*wparam*/, std::intptr_t lparam) {
  const auto kind = desktop_.ReadInputKind(lparam);
  if (!kind) return;
  const platform::SteadyTime now = runtime_.clock().Steady();
  const std::lock_guard lock(mutex_);
  if (rests_) return;
  Use& use = *kind == platform::DigitizerKind::kPen ? pen_ : touch_;
  const auto last = std::exchange(use.last, now);
  if (last && now - *last < kPause) return;
  pen_.sessions + touch_.sessions == 0 ? interval_.Arm(kInterval) : interval_.Retry();
  ++use.sessions;
}

void PenEventMonitor::WriteUse() {
  ItemData data;
  {
    const std::lock_guard lock(mutex_);
    const std::uint32_t pen = std::exchange(pen_.sessions, 0);
    const std::uint32_t touch = std::exchange(touch_.sessions, 0);
    if (pen + touch == 0) return;
    data = {{L"PenSessions", std::to_wstring(pen)}, {L"TouchSessions", std::to_wstring(touch)}};
  }
  writer_.Post(kDatasetId, [&recorder = recorder_, &desktop = desktop_, data] {
    const int result = recorder.WriteItem(kDatasetId, TVK::kPenUseItem, data, {});
    if (result != TVK::SessionRecorder::kNotDescribed) return result;
    // The service could not take the description before.
    Describe(recorder, desktop);
    return recorder.WriteItem(kDatasetId, TVK::kPenUseItem, data, {});
  });
}

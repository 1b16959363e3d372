// How often pens and touch screens are used in the user's session: counts, no places and no content.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "client/channel/session_recorder.h"
#include "client/log/log.h"
#include "framework/one_shot_timer.h"
#include "monitors/session/session_datasets.h"
#include "monitors/session/session_writer.h"
#include "platform/desktop.h"
#include "platform/runtime.h"

/// One dataset context for the machine. A session of use begins with an input of a kind (pen, touch) behind a pause of
/// that kind; the sessions of an interval that begins with the first of them are written together. At rest nothing of
/// it wakes. Any thread.
class PenEventMonitor {
 public:
  static constexpr std::chrono::seconds kPause{10};
  static constexpr std::chrono::hours kInterval{1};

  /// All must outlive the object.
  PenEventMonitor(platform::Runtime& runtime, platform::Desktop& desktop, TVK::SessionRecorder& recorder,
                  TVK::SessionWriter& writer);
  PenEventMonitor(const PenEventMonitor&) = delete;
  PenEventMonitor& operator=(const PenEventMonitor&) = delete;
  ~PenEventMonitor() = default;

  /// Describes what there is to touch, and has `window` (its HWND) told of input and devices.
  void Register(void* window);
  /// Takes that back; what was counted is written.
  void Unregister();
  /// While it rests nothing is counted, and what was counted is dropped: of a time in which the policy does not apply
  /// nothing is told later.
  void Rest(bool rests);
  /// The arguments of a WM_INPUT.
  void OnInput(void* window, std::uintptr_t wparam, std::intptr_t lparam);

 private:
  void DropNotices();
  struct Use {
    std::uint32_t sessions = 0;
    std::optional<platform::SteadyTime> last = {};  ///< Of the last input.
  };
  void WriteUse();

  platform::Runtime& runtime_;
  platform::Desktop& desktop_;
  TVK::SessionRecorder& recorder_;
  TVK::SessionWriter& writer_;
  TVK::Log log_;
  std::mutex mutex_;  ///< Guards what follows.
  std::unique_ptr<platform::WindowNotices> notices_;
  Use pen_;
  Use touch_;
  bool rests_ = false;
  TVK::OneShotTimer interval_;  ///< Armed while something is counted. Ends first: it calls back.
};

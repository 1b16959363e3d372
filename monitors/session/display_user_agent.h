// The displays of the user's session, as the user agent observes them.
#pragma once

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

/// What a window tells an observer of displays. The order of the operations is promised to those who call them by it.
/// All are called on the window's thread; RegisterNotifications may be on another one, beside them.
class DisplayEventCallBack {
 public:
  /// Has `window` (its HWND) told of display state, brightness and displays. The present values come as news.
  virtual void RegisterNotifications(void* window) = 0;
  /// Takes that back.
  virtual void UnregisterNotifications() = 0;
  /// A power broadcast: `type` is its wparam; only kPowerSettingChange means anything, whose `setting` points to a
  /// POWERBROADCAST_SETTING.
  virtual void PowerEventCallBack(std::uint32_t type, std::intptr_t setting) = 0;
  /// The display change message: bits per pixel, and width and height of the primary display in two words.
  virtual void ResolutionChange(std::uint32_t bits_per_pixel, std::intptr_t size) = 0;

 protected:
  ~DisplayEventCallBack() = default;
};

/// One dataset context for each display. What the displays do together (the console's display state, brightness,
/// resolution) is recorded of the primary one. The first state and the first brightness that are told are what the
/// later ones are compared with; a brightness is recorded once it has rested. Everything is read and written on the
/// writer's thread; the operations do not wait. One thread at a time, but for RegisterNotifications.
class DisplayUserAgent final : public DisplayEventCallBack {
 public:
  /// How long a brightness must stay: a slider passes through many.
  static constexpr std::chrono::seconds kBrightnessRest{5};

  /// All must outlive the object, and the writer what it was handed.
  DisplayUserAgent(platform::Runtime& runtime, platform::Desktop& desktop, TVK::SessionRecorder& recorder,
                   TVK::SessionWriter& writer);
  DisplayUserAgent(const DisplayUserAgent&) = delete;
  DisplayUserAgent& operator=(const DisplayUserAgent&) = delete;
  ~DisplayUserAgent() = default;

  void RegisterNotifications(void* window) override;
  void UnregisterNotifications() override;
  void PowerEventCallBack(std::uint32_t type, std::intptr_t setting) override;
  void ResolutionChange(std::uint32_t bits_per_pixel, std::intptr_t size) override;

  /// Describes the displays as they are now. `new_context_needed`: see SessionRecorder::LogDatasetContext.
  void LogDatasetContext(bool new_context_needed);
  /// A "DeviceInit" for each display that has none under the device context in force.
  void LogDevInitEvent();

 private:
  class Displays;
  void OnState(platform::DisplayState state);
  void OnBrightness(std::uint32_t percent);
  void WriteBrightness();
  /// The agent may end before the writer comes to it.
  static void PostDescription(TVK::SessionWriter& writer, const std::shared_ptr<Displays>& displays,
                              bool new_context_needed);

  platform::Desktop& desktop_;
  TVK::SessionWriter& writer_;
  TVK::Log log_;
  const std::shared_ptr<Displays> displays_;          ///< Used on the writer's thread alone.
  std::mutex notices_mutex_;                          ///< Guards the next; not held while the system is asked.
  std::unique_ptr<platform::WindowNotices> notices_;  ///< What is registered.
  std::optional<platform::DisplayState> state_;
  std::mutex brightness_mutex_;                    ///< Guards what follows: the timer has a thread of its own.
  std::optional<std::uint32_t> brightness_;        ///< As last recorded, or first told.
  std::optional<std::uint32_t> brightness_to_be_;  ///< That rests at present.
  TVK::OneShotTimer brightness_timer_;             ///< Ends first: it calls back.
};

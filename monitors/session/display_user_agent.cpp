#include "monitors/session/display_user_agent.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "client/text/string.h"
#include "framework/dataset_monitor.h"
#include "monitors/session/display_facts.h"

using TVK::String;

namespace {

const std::wstring kDatasetId(TVK::kDisplayRow.id);

const wchar_t* StateName(platform::DisplayState state) {
  switch (state) {
    case platform::DisplayState::kOff:
      return L"off";
    case platform::DisplayState::kOn:
      return L"on";
    case platform::DisplayState::kDimmed:
      return L"dimmed";
  }
  return L"";
}

}  // namespace

/// The displays as they were described last.
class DisplayUserAgent::Displays {
 public:
  Displays(platform::Desktop& desktop, TVK::SessionRecorder& recorder) : desktop_(desktop), recorder_(recorder) {}

  int Describe(bool new_context_needed) {
    std::vector<platform::AttachedDisplay> displays = desktop_.ListDisplays();
    std::vector<TVK::ObservedDevice> devices;
    primary_key_.clear();
    mode_ = {};
    for (const platform::AttachedDisplay& display : displays) {
      TVK::ObservedDevice device = TVK::ObserveDisplay(display);
      if (primary_key_.empty() || display.primary) {
        primary_key_ = device.key;
        mode_ = display.mode;
      }
      // The one display of two inputs is listed twice.
      if (std::ranges::find(devices, device.key, &TVK::ObservedDevice::key) != devices.end()) continue;
      devices.push_back(std::move(device));
    }
    return recorder_.LogDatasetContext(kDatasetId, devices, new_context_needed);
  }

  int Initialise() { return recorder_.LogDevInitEvent(kDatasetId); }

  /// The service may have been started anew since, and know no display.
  int Write(const wchar_t* item, const ItemData& data) {
    int result = primary_key_.empty() ? TVK::SessionRecorder::kNotDescribed
                                      : recorder_.WriteItem(kDatasetId, item, data, primary_key_);
    if (result != TVK::SessionRecorder::kNotDescribed) return result;
    result = Describe(false);
    return result != 0 || primary_key_.empty() ? result : recorder_.WriteItem(kDatasetId, item, data, primary_key_);
  }

  /// What is told is compared with what was told: by now the display may be where a later change took it.
  int ChangeResolution(platform::DisplayMode told) {
    const platform::DisplayMode before = recorded_.value_or(mode_);
    if (const int result = Describe(false); result != 0) return result;
    if (told.width == before.width && told.height == before.height && told.bits_per_pixel == before.bits_per_pixel) {
      return 0;  // displays came, went or were arranged anew
    }
    if (told.width == mode_.width && told.height == mode_.height) told.refresh_rate = mode_.refresh_rate;
    const int result = Write(TVK::kResolutionItem, TVK::DisplayModeItemData(told));
    if (result == 0) recorded_ = told;
    return result;
  }

 private:
  platform::Desktop& desktop_;
  TVK::SessionRecorder& recorder_;
  std::wstring primary_key_;  ///< Empty: there is no display.
  platform::DisplayMode mode_;
  std::optional<platform::DisplayMode> recorded_;  ///< The change that was told and recorded last.
};

DisplayUserAgent::DisplayUserAgent(platform::Runtime& runtime, platform::Desktop& desktop,
                                   TVK::SessionRecorder& recorder, TVK::SessionWriter& writer)
    : desktop_(desktop),
      writer_(writer),
      displays_(std::make_shared<Displays>(desktop, recorder)),
      brightness_timer_(runtime, "tvk-brightness", [this] { WriteBrightness(); }) {
  TVK::utility::InitLog(log_, L"DisplayUserAgent.log", 4);
}

void DisplayUserAgent::RegisterNotifications(void* window) {
  platform::WindowNoticesResult result = desktop_.RegisterForDisplays(window);
  if (!result.problem.empty()) {
    log_.e(L"DisplayUserAgent: not everything is told: %s", String::UTF8ToUTF16(result.problem));
  }
  const std::lock_guard lock(notices_mutex_);
  notices_.swap(result.notices);
}

void DisplayUserAgent::UnregisterNotifications() {
  std::unique_ptr<platform::WindowNotices> ended;
  const std::lock_guard lock(notices_mutex_);
  ended = std::move(notices_);
}

void DisplayUserAgent::PowerEventCallBack(std::uint32_t type, std::intptr_t setting) {
  if (type != platform::kPowerSettingChange) return;
  std::array<std::uint8_t, platform::kMessageDataSize> data{};
  const std::size_t size = desktop_.ReadMessageData(setting, data);
  const auto news = platform::DecodeDisplayPower({data.data(), size});
  if (!news) return;
  if (const auto* const state = std::get_if<platform::DisplayState>(&*news)) {
    OnState(*state);
  } else {
    OnBrightness(std::get<platform::Brightness>(*news).percent);
  }
}

void DisplayUserAgent::OnState(platform::DisplayState state) {
  const auto before = std::exchange(state_, state);
  if (!before || before == state) return;
  writer_.Post(kDatasetId, [displays = displays_, state] {
    return displays->Write(TVK::kDisplayStateItem, {{L"DisplayState", StateName(state)}});
  });
}

void DisplayUserAgent::OnBrightness(std::uint32_t percent) {
  const std::lock_guard lock(brightness_mutex_);
  if (!brightness_) {
    brightness_ = percent;
    return;
  }
  brightness_to_be_ = percent;
  brightness_timer_.Arm(kBrightnessRest);
}

void DisplayUserAgent::WriteBrightness() {
  std::uint32_t percent = 0;
  {
    const std::lock_guard lock(brightness_mutex_);
    if (!brightness_to_be_ || brightness_ == brightness_to_be_) return;
    brightness_ = brightness_to_be_;
    percent = *brightness_;
  }
  writer_.Post(kDatasetId, [displays = displays_, percent] {
    return displays->Write(TVK::kBrightnessItem, {{L"Brightness", std::to_wstring(percent)}});
  });
}

void DisplayUserAgent::ResolutionChange(std::uint32_t bits_per_pixel, std::intptr_t size) {
  const platform::DisplayMode mode{.width = static_cast<std::uint32_t>(size & 0xFFFF),
                                   .height = static_cast<std::uint32_t>(size >> 16 & 0xFFFF),
                                   .bits_per_pixel = bits_per_pixel};
  writer_.Post(kDatasetId, [&writer = writer_, displays = displays_, mode] {
    const int result = displays->ChangeResolution(mode);
    // The item belongs to its moment; how the displays are from now on is to be known.
    if (result == TVK::SessionRecorder::kChannelFailed || result == TVK::DatasetMonitor::kWithheld) {
      PostDescription(writer, displays, false);
    }
    return result;
  });
}

void DisplayUserAgent::LogDatasetContext(bool new_context_needed) {
  PostDescription(writer_, displays_, new_context_needed);
}

void DisplayUserAgent::PostDescription(TVK::SessionWriter& writer, const std::shared_ptr<Displays>& displays,
                                       bool new_context_needed) {
  writer.Post(
      kDatasetId, [displays, new_context_needed] { return displays->Describe(new_context_needed); }, true);
}

void DisplayUserAgent::LogDevInitEvent() {
  writer_.Post(
      kDatasetId, [displays = displays_] { return displays->Initialise(); }, true);
}

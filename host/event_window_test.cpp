// The user agent's window in a played session, with a service that is played by its events.
#include "host/event_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/notifier.h"
#include "core/user_process_agent.h"
#include "framework/dataset_monitor.h"
#include "platform/simulated/simulated_desktop.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using platform::SimulatedDesktop;
using testing::ElementsAre;
using testing::IsEmpty;

using Answer = SimulatedDesktop::Answer;

/// Notes what it is given, a line each. Any thread.
class RecordingRecorder final : public SessionRecorder {
 public:
  int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                        bool new_context_needed) override {
    std::wstring line = Name(dataset_id) + (new_context_needed ? L" described anew:" : L" described:");
    for (const ObservedDevice& device : devices)
      line += L' ' + Text(device.facts);
    return Note(line);
  }
  int LogDevInitEvent(const std::wstring& dataset_id) override { return Note(Name(dataset_id) + L" initialised"); }
  int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                const std::wstring& device_key) override {
    EXPECT_EQ(device_key.empty(), dataset_id == kPenRow.id);
    return Note(Name(dataset_id) + L' ' + item_name + L' ' + Text(data));
  }

  /// How many of the next calls the service does not take, and with which result.
  std::atomic<int> refusals = 0;
  std::atomic<int> refusal = kChannelFailed;

  /// What each call waits for, as for a service that is slow; null: nothing.
  std::atomic<platform::Event*> held_up = nullptr;
  platform::Runtime* runtime = nullptr;

  /// The lines since the last call.
  std::vector<std::wstring> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  static std::wstring Name(const std::wstring& id) { return id == kDisplayRow.id ? L"display" : L"pen"; }
  static std::wstring Text(const ItemData& data) {
    std::wstring text;
    for (const auto& [key, value] : data)
      text += (text.empty() ? L"" : L",") + key + L'=' + value;
    return text;
  }
  int Note(const std::wstring& line) {
    if (platform::Event* const hold = held_up; hold != nullptr) runtime->Wait(*hold, platform::kForever);
    if (refusals > 0 && refusals-- > 0) return refusal;
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    return 0;
  }

  std::mutex mutex_;  ///< Guards what follows.
  std::vector<std::wstring> lines_;
};

TelemetryPolicy Policy(const std::wstring& scope, bool display = true, bool pen = false) {
  TelemetryPolicy policy;
  policy.telemetry_scope = scope;
  for (const auto& [row, enabled] : {std::pair(kDisplayRow, display), std::pair(kPenRow, pen)}) {
    DataSet& dataset = policy.datasets.emplace_back();
    dataset.id = row.id;
    dataset.name = row.name;
    dataset.enabled = enabled;
  }
  return policy;
}

std::vector<std::uint8_t> PowerSetting(std::initializer_list<std::uint8_t> guid, std::uint8_t value) {
  std::vector<std::uint8_t> bytes(guid);
  bytes.insert(bytes.end(), {4, 0, 0, 0, value, 0, 0, 0});
  return bytes;
}
std::vector<std::uint8_t> StateSetting(std::uint8_t state) {
  return PowerSetting({0x56, 0x95, 0xE6, 0x6F, 0x4A, 0x70, 0xA0, 0x47, 0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47},
                      state);
}
std::vector<std::uint8_t> BrightnessSetting(std::uint8_t percent) {
  return PowerSetting({0xC6, 0xE2, 0xFE, 0x8F, 0x01, 0x2D, 0xB5, 0x46, 0xAD, 0xB9, 0x39, 0x8A, 0xDD, 0xC5, 0xB4, 0xFF},
                      percent);
}

class EventWindowTest : public testing::Test {
 protected:
  EventWindowTest() {
    recorder_.runtime = &runtime_;
    stop_ = Make(EventWindow::kStopEvent, platform::EventReset::kManual);
    telemetry_ = Make(kTelemetryPolicyChangeEvent, platform::EventReset::kAuto);
    tvk_ = Make(kTvkPolicyChangeEvent, platform::EventReset::kAuto);
    path_ = Make(kDevicePathChangeEvent, platform::EventReset::kAuto);
    desktop_.Change([](auto& session) {
      session.programs = {{1, kServiceProgram}};
      session.has_profile = true;
      session.profile = {{EventWindow::kVersionKey, L"1.0"}};
    });
    config_.SetPolicy(Policy(L"full"));
  }
  ~EventWindowTest() override { End(); }

  std::unique_ptr<platform::Event> Make(const wchar_t* name, platform::EventReset reset) {
    return runtime_.MakeNamedEvent(name, reset, false, platform::EventAccess::kSessionUsers).event;
  }

  /// What the user agent's program does.
  void Start() {
    agent_ = runtime_.StartThread("agent", [this] {
      SessionWriter writer(runtime_);
      PenEventMonitor pen(runtime_, desktop_, recorder_, writer);
      EventWindow window(
          {.runtime = runtime_,
           .desktop = desktop_,
           .config_policy_agent = has_agent_ ? &config_ : nullptr,
           .device =
               [] {
                 return EligibilityFilter({L"X1", {}, {}, {}, {}});
               },
           .make_display = [&] { return std::make_unique<DisplayUserAgent>(runtime_, desktop_, recorder_, writer); },
           .pen_monitor = [&] { return &pen; },
           .version = L"1.0",
           .data_folder = L"data",
           .tidy = [this] { ++tidied_; }});
      window.Create();
    });
    runtime_.AdvanceBy(100ms);
  }
  bool Ended() const { return runtime_.Threads().empty(); }
  void End() {
    stop_->Set();
    if (agent_.joinable()) runtime_.Join(agent_);
  }

  /// Puts the policy in force as the service does.
  void Change(const TelemetryPolicy& policy) {
    config_.SetPolicy(policy);
    telemetry_->Set();
    runtime_.Settle();
  }
  std::vector<std::wstring> Sent(std::uint32_t id, std::uintptr_t wparam = 0, std::intptr_t lparam = 0) {
    recorder_.Take();
    desktop_.Send(id, wparam, lparam);
    runtime_.Settle();
    return recorder_.Take();
  }
  std::vector<std::wstring> Told(std::vector<std::uint8_t> setting) {
    desktop_.Change([&](auto& session) { session.message_data = std::move(setting); });
    return Sent(platform::kMessagePowerBroadcast, platform::kPowerSettingChange, 1);
  }

  LogCapture logs_;
  platform::VirtualRuntime runtime_;
  SimulatedDesktop desktop_{runtime_};
  SettableConfigAgent config_;
  RecordingRecorder recorder_;
  std::unique_ptr<platform::Event> stop_, telemetry_, tvk_, path_;
  bool has_agent_ = true;
  std::atomic<int> tidied_ = 0;
  std::thread agent_;
};

constexpr std::uint32_t kStranger = 3;
constexpr wchar_t kFullHd[] = L"BitsPerPixel=32,Height=1080,Primary=true,RefreshRate=60,Width=1920";

TEST_F(EventWindowTest, EveryEndingEndsEveryThreadAndTakesEveryWishBack) {
  config_.SetPolicy(Policy(L"full", true, true));
  const auto send = [this](std::uint32_t id) { desktop_.Send(id); };
  for (const auto& [what, end] : std::vector<std::pair<const char*, std::function<void()>>>{
           {"stop event", [this] { stop_->Set(); }},
           {"service gone", [this] { desktop_.Change([](auto& session) { session.programs.clear(); }); }},
           {"a user's program of its name",
            [this] {
              desktop_.Change([](auto& session) {
                session.programs = {{kStranger, kServiceProgram}};
                session.strangers = {kStranger};
              });
            }},
           {"session is asked to end", [&] { send(platform::kMessageQueryEndSession); }},
           {"session ends", [&] { send(platform::kMessageEndSession); }},
           {"closed", [&] { send(platform::kMessageClose); }}}) {
    SCOPED_TRACE(what);
    stop_->Reset();
    desktop_.Change([](auto& session) { session.programs = {{1, kServiceProgram}}; });
    Start();
    EXPECT_EQ(desktop_.display_notices, 1);
    EXPECT_EQ(desktop_.digitizer_notices, 1);
    // A service that was started again ends the agent of the former one itself.
    desktop_.Change([](auto& session) { session.programs = {{2, kServiceProgram}}; });
    tidied_ = 0;
    runtime_.AdvanceBy(1h);
    EXPECT_NEAR(tidied_, 1800, 1) << "with each look";
    ASSERT_TRUE(desktop_.has_window());
    end();
    runtime_.AdvanceBy(2s);
    EXPECT_TRUE(Ended()) << "the watch looks every two seconds";
    runtime_.Join(agent_);
    EXPECT_EQ(desktop_.display_notices, 0);
    EXPECT_EQ(desktop_.digitizer_notices, 0);
    EXPECT_TRUE(runtime_.OpenNamedEvent(kTvkPolicyChangeEvent).event) << "it is the service's";
  }
  EXPECT_EQ(logs_.Count(L"Found that the TVKClientService.exe process had exited"), 2u);
  EXPECT_EQ(logs_.Count(L"return fail!"), 0u);
}

TEST_F(EventWindowTest, ThereIsNoWindowWithoutAServiceOrAPolicyForThisDevice) {
  TelemetryPolicy elsewhere = Policy(L"full");
  elsewhere.applicability.models = {L"Y2"};
  struct Case {
    const char* what;
    std::function<void()> change;
    const wchar_t* line;
  };
  for (const auto& [what, change, line] :
       std::vector<Case>{{"elsewhere", [&] { config_.SetPolicy(elsewhere); }, L"TelemetryPolicy not Applicable"},
                         {"no policy", [&] { config_.SetPolicy(std::nullopt); }, L"GetTelemetryPolicy() return fail!"},
                         {"ending", [&] { stop_->Set(); }, L"CreateEventWindow"},
                         {"no service", [&] { stop_ = nullptr; },
                          L"EventWindow Init OpenEvent Global\\TvkUserAgentStopEvent return error"}}) {
    SCOPED_TRACE(what);
    change();
    logs_.Clear();
    Start();
    EXPECT_TRUE(Ended());
    runtime_.Join(agent_);
    EXPECT_TRUE(logs_.Has(line));
    EXPECT_FALSE(logs_.Has(L"thread start..."));
  }
  stop_ = Make(EventWindow::kStopEvent, platform::EventReset::kManual);
  has_agent_ = false;
  Start();
  EXPECT_TRUE(logs_.Has(L"_configPolicyAgent is NULL!"));
  EXPECT_TRUE(desktop_.has_window()) << "without an agent it goes on";
  EXPECT_THAT(recorder_.Take(), IsEmpty());
}

TEST_F(EventWindowTest, EveryMessageHasItsResult) {
  constexpr Answer kDefault{.by_default = true};
  Start();
  EXPECT_EQ(desktop_.opened_for_all, 1);
  for (const auto& [id, wparam, answer] : {std::tuple(platform::kMessagePaint, 0u, Answer{}),
                                           {platform::kMessageCreate, 0u, Answer{}},
                                           {platform::kMessageDisplayChange, 32u, Answer{}},
                                           {platform::kMessageInput, 0u, kDefault},
                                           {platform::kMessagePowerBroadcast, platform::kPowerSettingChange, Answer{}},
                                           {platform::kMessagePowerBroadcast, 4u, Answer{}},
                                           {platform::kMessageDeviceChange, platform::kDeviceArrival, Answer{}},
                                           {platform::kMessageDeviceChange, 7u, Answer{}},
                                           {platform::kMessagePointerDeviceInRange, 0u, kDefault},
                                           {platform::kMessagePointerDeviceOutOfRange, 0u, kDefault},
                                           {0x0111u, 0u, kDefault},
                                           {0x0112u, 0u, kDefault}}) {
    EXPECT_EQ(desktop_.Send(id, wparam), answer) << std::hex << id << ' ' << wparam;
  }
  const std::vector<std::uint8_t> disc = {18, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 1, 0};
  std::vector<std::uint8_t> card = {28, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0};
  card.insert(card.end(),
              {0x30, 0x52, 0xDD, 0x50, 0x8A, 0xBA, 0xD1, 0x11, 0xBF, 0x5D, 0x00, 0x00, 0xF8, 0x05, 0xF5, 0x30});
  std::vector<std::uint8_t> share = disc;
  share[16] = 2;
  for (const auto& [data, arrived, removed] : {std::tuple(disc, L"cdrom is inserted.", L"cdrom is removed."),
                                               {card, L"Card is inserted to CardReader.", L"Card is removed from"},
                                               {share, L"", L""}}) {
    for (const bool arrival : {true, false}) {
      logs_.Clear();
      desktop_.Change([&](auto& session) { session.message_data = data; });
      Sent(platform::kMessageDeviceChange, arrival ? platform::kDeviceArrival : platform::kDeviceRemoveComplete, 1);
      const std::wstring line = arrival ? arrived : removed;
      EXPECT_EQ(logs_.Count(L"WM_DEVICECHANGE " + line), line.empty() ? 0u : 1u);
    }
  }
  desktop_.Change([](auto& session) { session.denied_events.insert(EventWindow::kStopEvent); });
  EXPECT_EQ(desktop_.Send(platform::kMessageQueryEndSession), (Answer{.result = 1})) << "whatever becomes of the event";
  EXPECT_EQ(desktop_.Send(platform::kMessageEndSession), Answer{});
  EXPECT_EQ(EventWindow::WndProc(nullptr, {}), 0);
}

TEST_F(EventWindowTest, AVersionThatIsNewHereInitialisesTheDisplays) {
  struct Case {
    const char* what;
    bool file;
    std::optional<std::wstring> stored;
    bool initialises;
  };
  for (const auto& [what, file, stored, initialises] : std::vector<Case>{{"no file", false, {}, true},
                                                                         {"no key", true, {}, false},
                                                                         {"another version", true, L"1.0b", true},
                                                                         {"another case", true, L"V1.0", true},
                                                                         {"this version", true, L"1.0", false}}) {
    SCOPED_TRACE(what);
    stop_->Reset();
    desktop_.Change([&](auto& session) {
      session.has_profile = file;
      session.profile.clear();
      if (stored) session.profile[EventWindow::kVersionKey] = *stored;
    });
    Start();
    const auto lines = recorder_.Take();
    EXPECT_EQ(std::ranges::count(lines, L"display initialised"), initialises);
    EXPECT_EQ(lines.front(), L"display described anew: " + std::wstring(kFullHd));
    EXPECT_EQ(desktop_.Get().profile[EventWindow::kVersionKey], L"1.0");
    EXPECT_EQ(logs_.Count(L"TvkVersion string can't be found"), file && !stored ? 1u : 0u);
    End();
    logs_.Clear();
  }
}

TEST_F(EventWindowTest, ThePolicySwitchesWhoHears) {
  config_.SetPolicy(Policy(L"basic", true, true));
  Start();
  EXPECT_THAT(recorder_.Take(), IsEmpty());
  const std::wstring described = L"display described anew: " + std::wstring(kFullHd);
  Change(Policy(L"enhance", true, true));
  EXPECT_THAT(recorder_.Take(), ElementsAre(described, L"display initialised", L"pen described: Pen=false,Touch=false",
                                            L"pen initialised"));
  for (const auto& [policy, displays, pens] : {std::tuple(Policy(L"full", true, false), 1, 0),
                                               {Policy(L"full", false, true), 0, 1},
                                               {Policy(L"none", true, true), 0, 0},
                                               {Policy(L"full", true, true), 1, 1}}) {
    Change(policy);
    EXPECT_EQ(desktop_.display_notices, displays);
    EXPECT_EQ(desktop_.digitizer_notices, pens);
  }
  config_.SetPolicy(std::nullopt);
  telemetry_->Set();
  runtime_.Settle();
  EXPECT_EQ(desktop_.display_notices, 1) << "what cannot be read changes nothing";
  config_.SetPolicy(Policy(L"none"));
  runtime_.AdvanceBy(500ms);
  EXPECT_EQ(desktop_.display_notices, 0) << "and is read again";
  Change(Policy(L"full"));
  config_.SetPolicy(std::nullopt);
  recorder_.Take();
  path_->Set();
  runtime_.Settle();
  EXPECT_THAT(recorder_.Take(), ElementsAre(L"display initialised"));
  tvk_->Set();
  runtime_.Settle();
  EXPECT_THAT(recorder_.Take(), IsEmpty()) << "no policy in force wants it";
  config_.SetPolicy(Policy(L"full"));
  tvk_->Set();
  runtime_.Settle();
  EXPECT_THAT(recorder_.Take(), ElementsAre(described));
  Change(Policy(L"full", false, false));
  recorder_.Take();
  path_->Set();
  tvk_->Set();
  runtime_.Settle();
  EXPECT_THAT(recorder_.Take(), IsEmpty());
}

TEST_F(EventWindowTest, AServiceThatIsNotReadyIsToldOfTheDisplaysLaterAndOfNoItemTwice) {
  for (const auto& [refusal, refusals, described] :
       {std::tuple(DatasetMonitor::kWithheld, SessionWriter::kWithheldTries, false),
        {DatasetMonitor::kWithheld, SessionWriter::kWithheldTries - 1, true},
        {SessionRecorder::kChannelFailed, SessionWriter::kWithheldTries, true}}) {
    SCOPED_TRACE(refusal);
    stop_->Reset();
    recorder_.refusal = refusal;
    recorder_.refusals = refusals;
    Start();
    EXPECT_THAT(recorder_.Take(), IsEmpty());
    runtime_.AdvanceBy(SessionWriter::kWithheldTries * SessionWriter::kRetry);
    EXPECT_THAT(recorder_.Take(), testing::SizeIs(described));
    End();
  }
  stop_->Reset();
  recorder_.refusal = DatasetMonitor::kWithheld;
  recorder_.refusals = 1;
  Start();
  Told(StateSetting(1));
  EXPECT_THAT(Told(StateSetting(2)), ElementsAre(L"display DisplayStateChange DisplayState=dimmed"))
      << "what is seen waits for no description";
  runtime_.AdvanceBy(SessionWriter::kRetry);
  EXPECT_THAT(recorder_.Take(), testing::SizeIs(1));
  End();
  stop_->Reset();
  config_.SetPolicy(Policy(L"full", true, true));
  recorder_.refusals = 1;
  Start();
  EXPECT_THAT(recorder_.Take(), ElementsAre(L"pen described: Pen=false,Touch=false", L"pen initialised"))
      << "it waits for none but its own";
  runtime_.AdvanceBy(SessionWriter::kRetry);
  EXPECT_THAT(recorder_.Take(), testing::SizeIs(1));
  config_.SetPolicy(Policy(L"full"));
  End();
  stop_->Reset();
  recorder_.refusal = SessionRecorder::kChannelFailed;
  Start();
  Told(StateSetting(1));
  recorder_.refusals = 1;
  EXPECT_THAT(Told(StateSetting(2)), IsEmpty());
  runtime_.AdvanceBy(1h);
  EXPECT_THAT(recorder_.Take(), IsEmpty()) << "it may have been taken";
  recorder_.refusals = 1;
  EXPECT_THAT(Sent(platform::kMessageDisplayChange, 32, 720 << 16 | 1280),
              ElementsAre(testing::StartsWith(L"display described: ")))
      << "of which later items tell";
  recorder_.refusals = 1'000'000;
  path_->Set();
  runtime_.AdvanceBy(5s);
  stop_->Set();
  runtime_.AdvanceBy(5s);
  EXPECT_TRUE(Ended()) << "nobody waits for a service that takes nothing";
}

TEST_F(EventWindowTest, EventsOfThePolicyThatAreMissingAreTriedForAWhileAndTheWindowStays) {
  struct Case {
    const wchar_t* name;
    const wchar_t* line;
  };
  for (const auto& [name, line] : {Case{kTelemetryPolicyChangeEvent, L"hTelemetryPolicyChangeEvent is NULL!"},
                                   Case{kTvkPolicyChangeEvent, L"hTvkPolicyChangeEvent is NULL!"},
                                   Case{kDevicePathChangeEvent, L"hDevicePathChangeEvent is NULL!"}}) {
    stop_->Reset();
    desktop_.Change([&](auto& session) { session.denied_events.insert(name); });
    Start();
    runtime_.AdvanceBy(4300ms);
    EXPECT_FALSE(logs_.Has(line));
    runtime_.AdvanceBy(200ms);
    EXPECT_TRUE(logs_.Has(line));
    EXPECT_EQ(desktop_.Send(platform::kMessagePaint), Answer{});
    End();
    stop_->Reset();
    Start();
    runtime_.AdvanceBy(4s);
    desktop_.Change([](auto& session) { session.denied_events.clear(); });
    logs_.Clear();
    runtime_.AdvanceBy(1s);
    EXPECT_FALSE(logs_.Has(line)) << "the service made it in time";
    End();
  }
}

TEST_F(EventWindowTest, ChangesOfTheDisplayAreRecordedOnce) {
  Start();
  EXPECT_THAT(Told(StateSetting(1)), IsEmpty()) << "as it was";
  EXPECT_THAT(Told(StateSetting(1)), IsEmpty()) << "told twice";
  EXPECT_THAT(Told(StateSetting(2)), ElementsAre(L"display DisplayStateChange DisplayState=dimmed"));
  EXPECT_THAT(Told(StateSetting(0)), ElementsAre(L"display DisplayStateChange DisplayState=off"));
  EXPECT_THAT(Told(StateSetting(3)), IsEmpty()) << "no such state";
  EXPECT_THAT(Told({0x56, 0x95}), IsEmpty());

  for (const auto percent : std::vector<std::uint8_t>{50, 60, 70, 101})
    EXPECT_THAT(Told(BrightnessSetting(percent)), IsEmpty());
  runtime_.AdvanceBy(4s);
  EXPECT_THAT(recorder_.Take(), IsEmpty()) << "it has not rested yet";
  runtime_.AdvanceBy(1s);
  EXPECT_THAT(recorder_.Take(), ElementsAre(L"display BrightnessChange Brightness=70"));
  Told(BrightnessSetting(20));
  Told(BrightnessSetting(70));
  runtime_.AdvanceBy(10s);
  EXPECT_THAT(recorder_.Take(), IsEmpty()) << "back where it was";

  EXPECT_THAT(Sent(platform::kMessageDisplayChange, 32, 1080 << 16 | 1920),
              ElementsAre(L"display described: " + std::wstring(kFullHd)));
  desktop_.Change([](auto& session) { session.displays.front().mode = {1280, 720, 32, 75}; });
  EXPECT_THAT(Sent(platform::kMessageDisplayChange, 32, 720 << 16 | 1280),
              ElementsAre(L"display described: BitsPerPixel=32,Height=720,Primary=true,RefreshRate=75,Width=1280",
                          L"display ResolutionChange BitsPerPixel=32,Height=720,RefreshRate=75,Width=1280"));
}

TEST_F(EventWindowTest, ResolutionsThatChangeWhileTheServiceIsSlowEndWithTheLastOne) {
  Start();
  recorder_.Take();
  const auto go_on = runtime_.MakeEvent(platform::EventReset::kManual);
  const auto change = [this](std::uint32_t width, std::uint32_t height) {
    desktop_.Change([&](auto& session) { session.displays.front().mode = {width, height, 32, 60}; });
    desktop_.Send(platform::kMessageDisplayChange, 32, static_cast<std::intptr_t>(height << 16 | width));
    runtime_.Settle();
  };
  recorder_.held_up = go_on.get();
  change(1920, 1080);  // as it is; the service takes its time
  change(1280, 720);
  change(1920, 1080);
  EXPECT_THAT(recorder_.Take(), IsEmpty());
  recorder_.held_up = nullptr;
  go_on->Set();
  runtime_.Settle();
  std::vector<std::wstring> changes = recorder_.Take();
  std::erase_if(changes, [](const std::wstring& line) { return line.find(L"ResolutionChange") == line.npos; });
  EXPECT_THAT(changes, ElementsAre(L"display ResolutionChange BitsPerPixel=32,Height=720,Width=1280",
                                   L"display ResolutionChange BitsPerPixel=32,Height=1080,RefreshRate=60,Width=1920"));
}

TEST_F(EventWindowTest, TouchesAreCountedBySessionsAndWrittenByTheHour) {
  config_.SetPolicy(Policy(L"full", false, true));
  desktop_.Change([](auto& session) { session.digitizers = {.pen = true, .touch = true, .touch_contacts = 10}; });
  Start();
  EXPECT_THAT(recorder_.Take(),
              ElementsAre(L"pen described: Pen=true,Touch=true,TouchContacts=10", L"pen initialised"));
  const auto touch = [&](platform::DigitizerKind kind) {
    desktop_.Change([&](auto& session) { session.input = kind; });
    EXPECT_THAT(Sent(platform::kMessageInput), IsEmpty());
  };
  for (const auto pause : {0s, 9s, 9s, 10s}) {
    runtime_.AdvanceBy(pause);
    touch(platform::DigitizerKind::kTouch);
  }
  touch(platform::DigitizerKind::kPen);
  desktop_.Change([](auto& session) { session.input = std::nullopt; });
  Sent(platform::kMessageInput);
  runtime_.AdvanceBy(1h);
  EXPECT_THAT(recorder_.Take(), ElementsAre(L"pen PenUsePerInterval PenSessions=1,TouchSessions=2"));
  runtime_.AdvanceBy(24h);
  EXPECT_THAT(recorder_.Take(), IsEmpty());
  // Of the time in which the policy does not apply nothing is told, also once it applies again.
  TelemetryPolicy elsewhere = Policy(L"full", false, true);
  elsewhere.applicability.models = {L"Y2"};
  for (const TelemetryPolicy& policy : {elsewhere, Policy(L"full", false, true)}) {
    touch(platform::DigitizerKind::kPen);
    config_.SetPolicy(policy);
    telemetry_->Set();
    runtime_.AdvanceBy(1min);
  }
  touch(platform::DigitizerKind::kTouch);
  runtime_.AdvanceBy(1h);
  EXPECT_THAT(recorder_.Take(), ElementsAre(L"pen PenUsePerInterval PenSessions=0,TouchSessions=1"));
  touch(platform::DigitizerKind::kPen);
  recorder_.Take();
  End();
  EXPECT_THAT(recorder_.Take(), ElementsAre(L"pen PenUsePerInterval PenSessions=1,TouchSessions=0"));
}

TEST_F(EventWindowTest, IdleWakesForTheWatchAlone) {
  Start();
  runtime_.AdvanceBy(10s);
  const std::uint64_t before = runtime_.WakeUps();
  runtime_.AdvanceBy(1h);
  EXPECT_EQ(runtime_.WakeUps() - before, 1800u);
}

}  // namespace
}  // namespace TVK

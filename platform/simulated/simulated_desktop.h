// A user's session that a test scripts, with a window whose messages the test sends.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "platform/desktop.h"
#include "platform/simulated/scripted.h"

namespace platform {

struct SimulatedSession {
  std::map<std::uint32_t, std::wstring> programs = {};  ///< That run, by process.
  std::set<std::uint32_t> strangers = {};               ///< Processes of accounts that cannot be the service's.
  std::vector<AttachedDisplay> displays = {{.id = "1", .mode = {1920, 1080, 32, 60}, .primary = true}};
  Digitizers digitizers = {};
  std::optional<DigitizerKind> input = {};      ///< Where every input message comes from.
  std::vector<std::uint8_t> message_data = {};  ///< What the lparam of every message points to.
  bool refuses_windows = false;
  std::map<std::wstring, std::wstring> profile = {};  ///< Key to value, of every file and section.
  bool has_profile = false;                           ///< Whether there is a file.
  std::set<std::wstring> denied_events = {};          ///< Cannot be opened, as if nobody had made them.
};

/// Every thread; one window at a time.
class SimulatedDesktop final : public Desktop, public Scripted<SimulatedSession> {
 public:
  /// What became of a message.
  struct Answer {
    bool by_default = false;   ///< The procedure left it to the system.
    std::intptr_t result = 0;  ///< Else what it answered.
    bool operator==(const Answer&) const = default;
  };

  /// Opens the events of `runtime`, which must outlive the object.
  explicit SimulatedDesktop(Runtime& runtime);

  /// Sends a message to the window, waits for the answer, and does what the system does by default: a window that is
  /// closed is destroyed. Nothing when there is no window.
  std::optional<Answer> Send(std::uint32_t id, std::uintptr_t wparam = 0, std::intptr_t lparam = 0);

  bool has_window() const;
  std::atomic<int> display_notices = 0;    ///< Wishes in force.
  std::atomic<int> digitizer_notices = 0;  ///< Wishes in force.
  std::atomic<int> opened_for_all = 0;     ///< Events that were opened with every right.

  NamedEventResult OpenSessionEvent(std::wstring_view name, EventRights rights) override;
  bool ServiceRuns(std::wstring_view program, std::wstring_view event) override;
  std::optional<int> RunWindow(const std::wstring& name, const WindowProcedure& procedure) override;
  void QuitWindow() override { quits_ = true; }
  bool CloseWindow(const std::wstring& title) override;
  std::uint32_t ForgetWindowClass(const std::wstring& name) override;
  std::size_t ReadMessageData(std::intptr_t lparam, std::span<std::uint8_t> into) override;
  WindowNoticesResult RegisterForDisplays(void* window) override;
  WindowNoticesResult RegisterForDigitizers(void* window) override;
  std::vector<AttachedDisplay> ListDisplays() override { return Get().displays; }
  Digitizers ReadDigitizers() override { return Get().digitizers; }
  std::optional<DigitizerKind> ReadInputKind(std::intptr_t lparam) override;
  std::optional<std::wstring> ReadProfile(const std::filesystem::path& file, const std::wstring& section,
                                          const std::wstring& key, std::size_t longest) override;
  std::uint32_t WriteProfile(const std::filesystem::path& file, const std::wstring& section, const std::wstring& key,
                             const std::wstring& value) override;

 private:
  struct Sent {
    WindowMessage message;
    Answer* answer;
    Event* done;
  };
  Answer Handle(const WindowProcedure& procedure, WindowMessage message);

  Runtime& runtime_;
  const std::unique_ptr<Event> posted_;
  mutable std::mutex mutex_;  ///< Guards what follows.
  std::wstring window_;       ///< Its title; empty: there is none.
  std::wstring class_;        ///< That is registered.
  std::deque<Sent> sent_;
  bool quits_ = false;                          ///< Of the window's thread.
  const WindowProcedure* procedure_ = nullptr;  ///< Of the window that runs.
  std::thread::id thread_;                      ///< Of the window that runs last.
};

}  // namespace platform

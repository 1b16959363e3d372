// What a program of a user's session asks of that session: its events, its window, its displays and digitizers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/runtime.h"
#include "platform/window_message.h"

namespace platform {

/// What a named event is opened for.
enum class EventRights {
  kWait,  ///< SYNCHRONIZE: waiting alone.
  kAll,   ///< EVENT_ALL_ACCESS.
};

/// Answers a message: the result, or nothing for what the system does with it by default. Must not throw.
using WindowProcedure = std::function<std::optional<std::intptr_t>(const WindowMessage&)>;

/// Wishes of a window to be told of something; they end with the object. Any thread.
class WindowNotices {
 public:
  WindowNotices() = default;
  WindowNotices(const WindowNotices&) = delete;
  WindowNotices& operator=(const WindowNotices&) = delete;
  virtual ~WindowNotices() = default;
};

/// What registering gave: what the system took, and what it refused.
struct WindowNoticesResult {
  std::unique_ptr<WindowNotices> notices;  ///< Never null.
  std::string problem;                     ///< Empty: everything was taken.
};

/// What a display shows now. What the system does not tell is 0.
struct DisplayMode {
  std::uint32_t width = 0;   ///< In pixels, as turned.
  std::uint32_t height = 0;  ///< In pixels, as turned.
  std::uint32_t bits_per_pixel = 0;
  std::uint32_t refresh_rate = 0;  ///< In Hz.
  bool operator==(const DisplayMode&) const = default;
};

/// A display that is part of the desktop.
struct AttachedDisplay {
  std::string id;                       ///< Where it is attached. Two displays never have the same.
  std::vector<std::uint8_t> edid = {};  ///< What it says of itself, as it came; empty: not told.
  DisplayMode mode = {};
  bool primary = false;
};

/// What people can touch of the machine.
struct Digitizers {
  bool pen = false;
  bool touch = false;
  std::uint32_t touch_contacts = 0;  ///< How many fingers at once; 0: not told.
};

enum class DigitizerKind { kPen, kTouch };

/// Any thread, but for what is said of windows.
class Desktop {
 public:
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  virtual ~Desktop() = default;

  /// Opens an event that some process made and still holds. It is waited for with the runtime of this process.
  virtual NamedEventResult OpenSessionEvent(std::wstring_view name, EventRights rights) = 0;

  /// Whether a process of this machine runs the service's program (its file's name, case aside) on behalf of an account
  /// that may be the service: the system, the administrators, or whoever made the event of this name, which the service
  /// did. A process that this user may not look at counts in the session of the services, where the system's are.
  /// False also when the system does not list its processes.
  virtual bool ServiceRuns(std::wstring_view program, std::wstring_view event) = 0;

  /// Makes a hidden top-level window whose class and title are `name`, answers its messages by `procedure` on this
  /// thread until QuitWindow, and returns what the loop ended with; nothing when there is no such window. The first
  /// messages come before the window is there.
  virtual std::optional<int> RunWindow(const std::wstring& name, const WindowProcedure& procedure) = 0;
  /// Ends the loop of this thread's window.
  virtual void QuitWindow() = 0;
  /// Closes this process's window of RunWindow, as a person would; false: there is none, or it does not answer. Returns
  /// when it has taken it.
  virtual bool CloseWindow(const std::wstring& name) = 0;
  /// Takes the class of a window that is gone back. Returns 0 or the system's error.
  virtual std::uint32_t ForgetWindowClass(const std::wstring& name) = 0;

  /// Copies what the lparam of a message points to into `into`; how many bytes could be read. Another process may send
  /// any number.
  virtual std::size_t ReadMessageData(std::intptr_t lparam, std::span<std::uint8_t> into) = 0;

  /// Lets `window` be told of the console's display state, of brightness and of displays that come and go. The present
  /// values are told at once, perhaps before this returns and more than once.
  virtual WindowNoticesResult RegisterForDisplays(void* window) = 0;
  /// Lets `window` be told of the input of pens and touch screens, also while other programs have it, and of every
  /// device that comes or goes.
  virtual WindowNoticesResult RegisterForDigitizers(void* window) = 0;

  virtual std::vector<AttachedDisplay> ListDisplays() = 0;
  virtual Digitizers ReadDigitizers() = 0;
  /// Which kind of device an input message (WM_INPUT) comes from; nothing for another one. Of the input nothing is
  /// read.
  virtual std::optional<DigitizerKind> ReadInputKind(std::intptr_t lparam) = 0;

  /// The value of a key in a private profile (ini) file, cut after `longest` characters; empty where there is no such
  /// key, nothing where there is no such file.
  virtual std::optional<std::wstring> ReadProfile(const std::filesystem::path& file, const std::wstring& section,
                                                  const std::wstring& key, std::size_t longest) = 0;
  /// Makes the file and the key as needed. Returns 0 or the system's error.
  virtual std::uint32_t WriteProfile(const std::filesystem::path& file, const std::wstring& section,
                                     const std::wstring& key, const std::wstring& value) = 0;
};

}  // namespace platform

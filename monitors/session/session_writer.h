// What is observed on a window's thread is written on another one: whoever owns a window must not wait.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "client/channel/session_recorder.h"
#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Does one thing after the other, in the order in which they were handed over, on a thread of its own.
class SessionWriter {
 public:
  /// What waits at most; more than a service that does not answer leaves behind in a session is lost, and logged.
  static constexpr std::size_t kMost = 256;

  /// `runtime` must outlive the object. Throws std::system_error when the system gives no thread.
  explicit SessionWriter(platform::Runtime& runtime);
  /// Does what was handed over before, unless the service does not take it.
  ~SessionWriter();
  SessionWriter(const SessionWriter&) = delete;
  SessionWriter& operator=(const SessionWriter&) = delete;

  /// What it returns is a SessionRecorder's result. What it refers to must outlive the writer.
  using Task = std::function<int()>;

  /// How often, and how long after each other, what may be done twice is tried: a service that begins, or has too many
  /// callers, takes it somewhat later.
  static constexpr int kTries = 30;
  static constexpr std::chrono::seconds kRetry{2};
  /// How often where it was withheld: the agent reads a policy as soon as there is one, which may be a moment before it
  /// is in force in the service.
  static constexpr int kWithheldTries = 5;

  /// Any thread; does not wait. `repeatable`: tried again where the channel failed or the service withheld it; an item,
  /// of which nobody knows whether it was taken, and which belongs to its moment, must not be. What was withheld holds
  /// up what is repeatable of its own dataset (an id), and nothing else. Where the channel failed everything waits: it
  /// would fail, too.
  void Post(const std::wstring& dataset, Task task, bool repeatable = false);

 private:
  struct Entry {
    std::wstring dataset;
    Task task;
    bool repeatable = false;
    int tries = 0;
    int withheld = 0;  ///< Of them.
  };
  void Run();
  /// Takes what is to be done now; nothing: `pause` is to be waited for news.
  std::optional<Entry> Take(std::chrono::milliseconds& pause);
  /// Has it tried again, or not. The result of the task was `result`.
  void PutBack(Entry entry, int result);
  bool IsClosing();

  platform::Runtime& runtime_;
  Log log_;
  const std::unique_ptr<platform::Event> news_;     ///< A task came, or the end.
  const std::unique_ptr<platform::Event> closing_;  ///< Manual; stays set.
  std::mutex mutex_;                                ///< Guards what follows.
  std::deque<Entry> tasks_;
  std::optional<platform::SteadyTime> channel_due_;        ///< The channel failed; until then nothing is done.
  std::map<std::wstring, platform::SteadyTime> withheld_;  ///< The same of a dataset's repeatable tasks.
  bool overflows_ = false;                                 ///< The last task was lost.
  std::thread thread_;
};

}  // namespace TVK

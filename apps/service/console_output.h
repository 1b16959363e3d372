// What the service says in its terminal, without waiting for the terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

/// Takes texts for standard output and standard error and writes them, in the order in which they came, on a thread of
/// its own. So a terminal that is stopped, or a pipe that nobody reads, holds up nobody but that thread.
///
/// What waits to be written is bounded: a text that finds kMostBytes waiting is left out, and so are those after it
/// until everything that waited has been written; a line on standard error then says how many lines are missing.
class ConsoleOutput {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{1} << 20;
  /// How long the end waits for what is not written yet.
  static constexpr std::chrono::milliseconds kPatience{2000};

  /// Writes a text to `stdout` or `stderr`. Runs on the thread of the object and may block for as long as it likes,
  /// also beyond the object's life. When it throws, the thread ends, and what comes later is lost.
  using Sink = std::function<void(std::FILE* stream, const std::string& text)>;

  /// Throws std::system_error when the system gives no events. The thread starts with the first text.
  explicit ConsoleOutput(Sink sink = WriteToStream);
  /// Finish, unless that was done.
  ~ConsoleOutput();
  ConsoleOutput(const ConsoleOutput&) = delete;
  ConsoleOutput& operator=(const ConsoleOutput&) = delete;

  /// Puts `text`, which brings its own line feeds, on its way to standard output. Any thread; never waits for the
  /// terminal. When the system gives no thread the text is lost, and the first time a line on standard error says so.
  void Show(const std::string& text) { Put(stdout, text); }

  /// Puts `message` and a line feed on its way to standard error. As Show, but without a thread it is
  /// written at once, unless standard error does not take it.
  void Complain(const std::string& message) { Put(stderr, message + '\n'); }

  /// Ends the thread once everything is written; whether that came to pass within kPatience. When it did not, the
  /// thread is left to itself in the middle of a text, and may hold the lock of its stream for ever: exit(), which
  /// looks at all streams, could wait for it, std::_Exit does not. Nothing may be put afterwards. Once, by the owner.
  bool Finish();

 private:
  struct State;

  static void WriteToStream(std::FILE* stream, const std::string& text);
  static void WriteAll(State& state);
  static void WriteUntilEnd(State& state);
  void Put(std::FILE* stream, const std::string& text);
  void SayWithoutThread(std::FILE* stream, std::string_view text, const char* reason);

  const std::shared_ptr<State> state_;  ///< Shared with the thread, which may outlive the object.
  std::thread thread_;                  ///< Guarded by the state's mutex until Finish, as the next line is.
  bool said_ = false;                   ///< That records are not shown.
  bool finished_ = false;
};

#include "apps/service/console_output.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/local.h"
#include "platform/standard_error.h"

struct ConsoleOutput::State {
  explicit State(Sink given) : sink(std::move(given)) {}

  struct Text {
    std::FILE* stream;
    std::string text;
  };

  const Sink sink;
  const std::unique_ptr<platform::Runtime> runtime = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Event> news = runtime->MakeEvent(platform::EventReset::kAuto);
  const std::unique_ptr<platform::Event> written = runtime->MakeEvent(platform::EventReset::kManual);
  std::mutex mutex;  ///< Guards what follows.
  std::deque<Text> waiting;
  std::size_t waiting_bytes = 0;
  std::size_t left_out = 0;  ///< Lines, since everything was written last.
  bool ending = false;
};

ConsoleOutput::ConsoleOutput(Sink sink) : state_(std::make_shared<State>(std::move(sink))) {}

ConsoleOutput::~ConsoleOutput() {
  if (!finished_) Finish();
}

void ConsoleOutput::WriteToStream(std::FILE* stream, const std::string& text) {
  // Nobody to tell when the terminal does not take it; the record is in the store.
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
  static_cast<void>(std::fflush(stream));
}

void ConsoleOutput::Put(std::FILE* stream, const std::string& text) {
  if (text.empty()) return;
  {
    const std::lock_guard lock(state_->mutex);
    if (!thread_.joinable()) {
      try {
        thread_ = state_->runtime->StartThread("tvk-console", [state = state_] { WriteAll(*state); });
      } catch (const std::system_error& failure) {
        SayWithoutThread(stream, text, failure.what());
        return;  // whoever has something to say is not to fail for it
      }
    }
    if (state_->left_out == 0 && state_->waiting_bytes < kMostBytes) {
      state_->waiting.push_back({stream, text});
      state_->waiting_bytes += text.size();
    } else {
      state_->left_out += static_cast<std::size_t>(std::ranges::count(text, '\n'));
    }
  }
  state_->news->Set();
}

void ConsoleOutput::SayWithoutThread(std::FILE* stream, std::string_view text, const char* reason) {
  if (stream == stderr) {
    text.remove_suffix(1);  // its line feed
    platform::WriteLineToStandardError({text});
  } else if (!std::exchange(said_, true)) {
    platform::WriteLineToStandardError({"records are not shown: ", reason});
  }
}

void ConsoleOutput::WriteAll(State& state) {
  try {
    WriteUntilEnd(state);
  } catch (...) {
    // Nobody to tell: this is the way to the terminal. Whoever ends the process must not wait for it all the same.
  }
  state.written->Set();
}

void ConsoleOutput::WriteUntilEnd(State& state) {
  for (;;) {
    State::Text next{};
    bool ending = false;
    {
      const std::lock_guard lock(state.mutex);
      if (!state.waiting.empty()) {
        next = std::move(state.waiting.front());
        state.waiting.pop_front();
        state.waiting_bytes -= next.text.size();
      } else if (state.left_out > 0) {
        next = {stderr, "(" + std::to_string(state.left_out) + " lines are missing here: the output was not taken)\n"};
        state.left_out = 0;
      }
      ending = state.ending;
    }
    if (!next.text.empty()) {
      state.sink(next.stream, next.text);
    } else if (ending) {
      return;
    } else {
      state.runtime->Wait(*state.news, platform::kForever);
    }
  }
}

bool ConsoleOutput::Finish() {
  finished_ = true;
  if (!thread_.joinable()) return true;
  {
    const std::lock_guard lock(state_->mutex);
    state_->ending = true;
  }
  state_->news->Set();
  if (state_->runtime->Wait(*state_->written, kPatience) == 0) {
    state_->runtime->Join(thread_);
    return true;
  }
  thread_.detach();
  return false;
}

#include "testing/child_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iostream>

#include "platform/local.h"

namespace {

// Looks whenever there is `news`, and often in between: files that a process writes make no news here. Once `ended` is
// set, nothing will change.
bool WaitForStateOrEnd(platform::Runtime& runtime, platform::Event& news, platform::Event& ended,
                       const std::function<bool()>& state, std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kBetweenLooks(20);
  const platform::SteadyTime latest = runtime.clock().Steady() + limit;
  for (;;) {
    const bool last_look = runtime.clock().Steady() >= latest || runtime.Wait(ended, std::chrono::milliseconds(0)) == 0;
    if (state()) return true;
    if (last_look) return false;
    runtime.Wait(news, kBetweenLooks);
  }
}

}  // namespace

bool WaitForState(const std::function<bool()>& state, std::chrono::milliseconds limit) {
  const auto runtime = platform::MakeRealRuntime({});
  const auto never = runtime->MakeEvent(platform::EventReset::kManual);
  return WaitForStateOrEnd(*runtime, *never, *never, state, limit);
}

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments)
    : runtime_(platform::MakeRealRuntime({})),
      news_(runtime_->MakeEvent(platform::EventReset::kAuto)),
      ended_(runtime_->MakeEvent(platform::EventReset::kManual)),
      process_(SystemProcess::Start(program, arguments)) {
  reader_ = runtime_->StartThread("child-output", [this] { ReadOutput(); });
}

ChildProcess::~ChildProcess() {
  process_->Ask(ChildRequest::kKill);
  runtime_->Join(reader_);
  if (!testing::Test::HasFailure()) return;
  for (const std::string& line : lines_)
    std::cout << "child: " << line << '\n';
}

void ChildProcess::ReadOutput() {
  std::array<char, 4096> buffer;
  std::string line;
  while (const std::size_t size = process_->Read(buffer)) {
    const std::lock_guard lock(mutex_);
    for (const char character : std::span(buffer).first(size)) {
      if (character == '\n') {
        if (line.ends_with('\r')) line.pop_back();
        lines_.push_back(std::move(line));
        line.clear();
      } else {
        line += character;
      }
    }
    news_->Set();
  }
  const int exit_code = process_->Wait();
  {
    const std::lock_guard lock(mutex_);
    exit_code_ = exit_code;
  }
  ended_->Set();
  news_->Set();
}

std::vector<std::string> ChildProcess::Lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

bool ChildProcess::WaitFor(const std::function<bool()>& state, std::chrono::milliseconds limit) {
  return WaitForStateOrEnd(*runtime_, *news_, *ended_, state, limit);
}

bool ChildProcess::WaitForLine(const std::string& text, std::chrono::milliseconds limit) {
  return WaitFor(
      [&] {
        const std::lock_guard lock(mutex_);
        return std::ranges::any_of(lines_, [&](const std::string& line) { return line.find(text) != line.npos; });
      },
      limit);
}

std::optional<int> ChildProcess::WaitForEnd(std::chrono::milliseconds limit) {
  if (runtime_->Wait(*ended_, limit) != 0) return std::nullopt;
  const std::lock_guard lock(mutex_);
  return exit_code_;
}

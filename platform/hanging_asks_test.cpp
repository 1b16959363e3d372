#include "platform/hanging_asks.h"

#include <gtest/gtest.h>

#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace platform {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

/// Drivers that answer with their names in capitals; those that hang do so until they are released.
class Drivers {
 public:
  void Hang(const std::string& name) { hanging_.try_emplace(name); }
  void Release(const std::string& name) { hanging_[name].release.set_value(); }
  std::optional<std::string> Ask(const std::string& name) {
    {
      const std::lock_guard lock(mutex_);
      asked_ += name;
    }
    if (name == "!") throw std::runtime_error("no memory");
    if (const auto found = hanging_.find(name); found != hanging_.end()) found->second.released.wait();
    return name == "-" ? std::nullopt : std::optional("<" + name + ">");
  }
  std::string TakeAsked() {
    const std::lock_guard lock(mutex_);
    return std::exchange(asked_, {});
  }

 private:
  struct Hanging {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
  };
  std::map<std::string, Hanging> hanging_;  // not changed while drivers are asked
  std::mutex mutex_;
  std::string asked_;
};

std::string Told(const std::vector<Asked<std::string>>& asked) {
  std::string told;
  for (const auto& one : asked)
    told += one.hangs ? "." : one.answer.value_or("none");
  return told;
}

TEST(HangingAsks, OneThatHangsHidesNoOtherOneAndIsAskedOnce) {
  const auto drivers = std::make_shared<Drivers>();
  for (const char* const name : {"b", "d"})
    drivers->Hang(name);
  const std::function<std::optional<std::string>(const std::string&)> ask = [drivers](const std::string& name) {
    return drivers->Ask(name);
  };
  HangingAsks asks(1s);  // the others answer at once
  EXPECT_EQ(Told(asks.AskEach<std::string>({}, ask)), "");
  EXPECT_EQ(Told(asks.AskEach<std::string>({"a", "b", "-", "d"}, ask)), "<a>.none.");
  EXPECT_EQ(drivers->TakeAsked(), "ab-d");
  EXPECT_EQ(Told(asks.AskEach<std::string>({"a", "b", "c", "d"}, ask)), "<a>.<c>.");
  EXPECT_EQ(drivers->TakeAsked(), "ac") << "no second thread is lost to it";
  EXPECT_THROW(asks.AskEach<std::string>({"a", "!", "c"}, ask), std::runtime_error);
  drivers->TakeAsked();
  drivers->Release("b");
  // It comes back in its own time.
  std::string told;
  while ((told = Told(asks.AskEach<std::string>({"b", "d"}, ask))) == "..") {
  }
  EXPECT_EQ(told, "<b>.");
  EXPECT_EQ(drivers->TakeAsked(), "b");
  drivers->Release("d");
}

TEST(HangingAsks, ManyThatHangTakeNoLongerThanSome) {
  const auto drivers = std::make_shared<Drivers>();
  const std::vector<std::string> names = {"a", "b", "c", "d", "e", "f"};
  for (const char* const name : {"a", "b", "c", "d"})
    drivers->Hang(name);
  const std::function<std::optional<std::string>(const std::string&)> ask = [drivers](const std::string& name) {
    return drivers->Ask(name);
  };
  HangingAsks asks(500ms);
  EXPECT_EQ(Told(asks.AskEach<std::string>(names, ask)), "......");
  EXPECT_EQ(drivers->TakeAsked(), "abcd");
  while (Told(asks.AskEach<std::string>(names, ask)) != "....<e><f>") {  // where the machine is slow, more seem to hang
  }
  for (const char* const name : {"a", "b", "c", "d"})
    drivers->Release(name);
}

}  // namespace
}  // namespace platform

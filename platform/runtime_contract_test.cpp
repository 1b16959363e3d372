// What every runtime promises, asked of the system's own and of the virtual one.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "platform/local.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

using std::chrono::hours;

enum class Kind { kReal, kVirtual };

class RuntimeContract : public testing::TestWithParam<Kind> {
 protected:
  RuntimeContract() {
    if (GetParam() == Kind::kReal) {
      runtime_ = MakeRealRuntime({folder_.path()});
    } else {
      runtime_ = std::make_unique<VirtualRuntime>();
    }
    never_ = runtime_->MakeEvent(EventReset::kManual);
  }

  std::wstring Name(const wchar_t* what) const { return L"Global\\tvk-contract-" + std::to_wstring(number_) + what; }

  const unsigned number_ = std::random_device()();
  const TempFolder folder_;
  std::unique_ptr<Runtime> runtime_;
  std::unique_ptr<Event> never_;
};

TEST_P(RuntimeContract, AutoResetSignalEndsOneWaitManualResetSignalStaysAndTimeoutsAreNotEarly) {
  const auto once = runtime_->MakeEvent(EventReset::kAuto, true);
  EXPECT_EQ(runtime_->Wait(*once, kForever), 0u);
  EXPECT_EQ(runtime_->Wait(*once, milliseconds(0)), kWaitTimeout);
  once->Set();
  once->Set();
  EXPECT_EQ(runtime_->Wait(*once, milliseconds(0)), 0u);
  EXPECT_EQ(runtime_->Wait(*once, milliseconds(0)), kWaitTimeout);

  const auto stays = runtime_->MakeEvent(EventReset::kManual);
  EXPECT_EQ(runtime_->Wait(*stays, milliseconds(-1)), kWaitTimeout);
  const SteadyTime start = runtime_->clock().Steady();
  EXPECT_EQ(runtime_->Wait(*stays, milliseconds(3)), kWaitTimeout);
  EXPECT_GE(runtime_->clock().Steady() - start, milliseconds(3));
  stays->Set();
  EXPECT_EQ(runtime_->Wait(*stays, kForever), 0u);
  EXPECT_EQ(runtime_->Wait(*stays, kForever), 0u);
  stays->Reset();
  EXPECT_EQ(runtime_->Wait(*stays, milliseconds(0)), kWaitTimeout);
}

TEST_P(RuntimeContract, WaitUntilAMomentOfEitherClockIsNotEarlyNorMuchTooLateAndAPastOneOnlyLooks) {
  const auto check = [&](auto now, const char* clock) {
    SCOPED_TRACE(clock);
    const auto start = now();
    for (const milliseconds wait : {milliseconds(3), milliseconds(40)}) {
      const auto due = now() + wait;
      EXPECT_EQ(runtime_->WaitUntil(*never_, due), kWaitTimeout);
      EXPECT_GE(now(), due);
    }
    EXPECT_LT(now() - start, std::chrono::seconds(20));

    const auto signal = runtime_->MakeEvent(EventReset::kAuto, true);
    for (const auto past : {start, start - hours(1)}) {
      EXPECT_EQ(runtime_->WaitUntil(*signal, past), 0u);
      EXPECT_EQ(runtime_->WaitUntil(*signal, past), kWaitTimeout);
      signal->Set();
    }
    EXPECT_EQ(runtime_->WaitUntil(*signal, now() + hours(1)), 0u);
    std::thread setter = runtime_->StartThread("setter", [&] {
      runtime_->Wait(*never_, milliseconds(5));
      signal->Set();
    });
    EXPECT_EQ(runtime_->WaitUntil(*signal, decltype(now())::max()), 0u);
    runtime_->Join(setter);
  };
  check([&] { return runtime_->clock().Steady(); }, "waking");
  check([&] { return runtime_->clock().Elapsed(); }, "elapsed");
}

TEST_P(RuntimeContract, LowestSignalledIndexWinsAndIsTheOnlyOneConsumed) {
  const auto first = runtime_->MakeEvent(EventReset::kAuto);
  const auto second = runtime_->MakeSemaphore(2, 2);
  const auto third = runtime_->MakeEvent(EventReset::kAuto, true);
  Waitable* const all[] = {first.get(), second.get(), third.get()};
  for (const WaitCode expected : {1u, 1u, 2u})
    EXPECT_EQ(runtime_->WaitAny(all, kForever), expected);
  EXPECT_EQ(runtime_->WaitAny(all, milliseconds(0)), kWaitTimeout);
}

TEST_P(RuntimeContract, WaitTakesAsManyAsItSaysAndRefusesWhatItCannotWaitFor) {
  const auto event = runtime_->MakeEvent(EventReset::kManual, true);
  const auto later = [&] { return runtime_->clock().Elapsed() + hours(1); };
  std::vector<Waitable*> objects(kMaximumWaitObjects, never_.get());
  objects.back() = event.get();
  EXPECT_EQ(runtime_->WaitAny(objects, hours(1)), kMaximumWaitObjects - 1);
  EXPECT_EQ(runtime_->WaitAnyUntil(objects, later()), kMaximumWaitObjects - 1);
  objects.push_back(event.get());
  EXPECT_EQ(runtime_->WaitAny(objects, milliseconds(0)), kWaitFailed);
  EXPECT_EQ(runtime_->WaitAnyUntil(objects, later()), kWaitFailed);
  Waitable* const with_null[] = {event.get(), nullptr};
  EXPECT_EQ(runtime_->WaitAny(with_null, milliseconds(0)), kWaitFailed);
  EXPECT_EQ(runtime_->WaitAny({}, milliseconds(0)), kWaitFailed);
  EXPECT_EQ(runtime_->WaitAnyUntil({}, later()), kWaitFailed);
}

TEST_P(RuntimeContract, SemaphoreNeverPassesItsMaximum) {
  const auto semaphore = runtime_->MakeSemaphore(1, 3);
  EXPECT_EQ(semaphore->Release(3), 298u);
  EXPECT_EQ(semaphore->Release(2), 0u);
  EXPECT_EQ(semaphore->Release(1), kErrorTooManyPosts);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(runtime_->Wait(*semaphore, kForever), 0u);
  EXPECT_EQ(runtime_->Wait(*semaphore, milliseconds(0)), kWaitTimeout);
  EXPECT_EQ(semaphore->Release(3), 0u);
  EXPECT_THROW(runtime_->MakeSemaphore(2, 1), std::invalid_argument);
  EXPECT_THROW(runtime_->MakeSemaphore(0, 0), std::invalid_argument);
}

TEST_P(RuntimeContract, EachSignalWakesOneOfTheWaitersAndTheManualOneAllOfThem) {
  const auto stop = runtime_->MakeEvent(EventReset::kManual);
  const auto work = runtime_->MakeEvent(EventReset::kAuto);
  const auto taken = runtime_->MakeSemaphore(0, 100);
  std::atomic<int> count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.push_back(runtime_->StartThread("waiter", [&] {
      Waitable* const objects[] = {stop.get(), work.get()};
      while (runtime_->WaitAny(objects, kForever) == 1) {
        ++count;
        taken->Release(1);
      }
    }));
  }
  for (int i = 0; i < 50; ++i) {
    work->Set();
    ASSERT_EQ(runtime_->Wait(*taken, kForever), 0u);
  }
  stop->Set();
  for (std::thread& thread : threads)
    runtime_->Join(thread);
  EXPECT_EQ(count, 50);
}

TEST_P(RuntimeContract, NamedEventIsOneEventForAllWhoHoldItAndGoneWithTheLast) {
  const std::wstring name = Name(L"-\u00e4/../x");
  EXPECT_EQ(runtime_->OpenNamedEvent(name).event, nullptr);
  EXPECT_NE(runtime_->OpenNamedEvent(name).error, 0u);

  auto made = runtime_->MakeNamedEvent(name, EventReset::kManual, true, EventAccess::kServiceOnly);
  ASSERT_NE(made.event, nullptr) << made.error;
  auto made_again = runtime_->MakeNamedEvent(name, EventReset::kAuto, false, EventAccess::kServiceOnly);
  ASSERT_NE(made_again.event, nullptr) << made_again.error;
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(runtime_->Wait(*made_again.event, kForever), 0u) << "still a manual-reset one";
  made.event->Reset();
  EXPECT_EQ(runtime_->Wait(*made_again.event, milliseconds(0)), kWaitTimeout);

  made.event.reset();
  auto opened = runtime_->OpenNamedEvent(name);
  ASSERT_NE(opened.event, nullptr) << opened.error;
  opened.event->Set();
  EXPECT_EQ(runtime_->Wait(*made_again.event, kForever), 0u);

  const auto other =
      runtime_->MakeNamedEvent(Name(L"-\u00e4/../y"), EventReset::kManual, false, EventAccess::kSessionUsers);
  ASSERT_NE(other.event, nullptr) << other.error;
  EXPECT_EQ(runtime_->Wait(*other.event, milliseconds(0)), kWaitTimeout);

  opened.event.reset();
  made_again.event.reset();
  EXPECT_EQ(runtime_->OpenNamedEvent(name).event, nullptr);
  const auto reborn = runtime_->MakeNamedEvent(name, EventReset::kAuto, false, EventAccess::kServiceOnly);
  ASSERT_NE(reborn.event, nullptr) << reborn.error;
  EXPECT_EQ(runtime_->Wait(*reborn.event, milliseconds(0)), kWaitTimeout) << "nothing is left of the old state";
  reborn.event->Set();
  EXPECT_EQ(runtime_->Wait(*reborn.event, kForever), 0u);
  EXPECT_EQ(runtime_->Wait(*reborn.event, milliseconds(0)), kWaitTimeout) << "nor of the old kind";
}

TEST_P(RuntimeContract, JoinWaitsForTheEndAndRefusesTheThreadItself) {
  const auto go = runtime_->MakeEvent(EventReset::kAuto);
  std::errc refused{};
  bool ended = false;
  std::thread thread;
  thread = runtime_->StartThread("self-join", [&] {
    runtime_->Wait(*go, kForever);
    try {
      runtime_->Join(thread);
    } catch (const std::system_error& error) {
      refused = static_cast<std::errc>(error.code().value());
    }
    ended = true;
  });
  std::thread joiner = runtime_->StartThread("joiner", [&] {
    runtime_->Join(thread);
    EXPECT_TRUE(ended);
  });
  go->Set();
  runtime_->Join(joiner);
  EXPECT_EQ(refused, std::errc::resource_deadlock_would_occur);
  EXPECT_FALSE(thread.joinable());
}

TEST_P(RuntimeContract, CalendarIsInvertedCarriedOverAndEndsAt1970) {
  const Clock& clock = runtime_->clock();
  for (const std::int64_t moment : {std::int64_t{86'400}, std::int64_t{951'868'799}, std::int64_t{1'767'225'600}}) {
    EXPECT_EQ(clock.FromLocal(clock.ToLocal(moment)), moment);
  }
  EXPECT_EQ(clock.FromLocal({.year = 2025, .month = 14, .day = 0, .hour = 36}),
            clock.FromLocal({.year = 2026, .month = 2, .day = 1, .hour = 12}));
  EXPECT_EQ(clock.FromLocal({.year = 1969, .month = 6}), -1);
  EXPECT_EQ(clock.FromLocal({.year = -5, .month = -5}), -1);
}

INSTANTIATE_TEST_SUITE_P(All, RuntimeContract, testing::Values(Kind::kReal, Kind::kVirtual),
                         [](const auto& row) { return row.param == Kind::kReal ? "Real" : "Virtual"; });

}  // namespace
}  // namespace platform

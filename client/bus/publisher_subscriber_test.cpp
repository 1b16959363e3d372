#include "client/bus/publisher_subscriber.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
using platform::VirtualRuntime;

TEST(PublisherSubscriberTest, DeliversInOrderToAllAlthoughOneThrows) {
  LogCapture log;
  VirtualRuntime runtime;
  TVKPublisherSubscriber bus(runtime);
  std::vector<int> seen;
  bus.Subscribe([](TVKNotificationData&) { throw std::runtime_error("subscriber broke"); }, false);
  bus.Subscribe([&](TVKNotificationData& data) { seen.push_back(data.getEventState()); }, false);
  for (int i = 0; i < 50; ++i)
    bus.Publish(TVKNotificationData(4, i, L""));
  runtime.Settle();
  ASSERT_EQ(seen.size(), 50u);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(seen[static_cast<std::size_t>(i)], i);
  EXPECT_EQ(log.Count(L"subscriber broke"), 50u);
}

TEST(PublisherSubscriberTest, UnsubscribeWaitsForTheRunningCallbackAndSilencesIt) {
  VirtualRuntime runtime;
  TVKPublisherSubscriber bus(runtime);
  const auto entered = runtime.MakeEvent(platform::EventReset::kManual);
  const auto proceed = runtime.MakeEvent(platform::EventReset::kManual);
  std::atomic<int> finished = 0;
  const std::wstring id = bus.Subscribe(
      [&](TVKNotificationData&) {
        entered->Set();
        runtime.Wait(*proceed, platform::kForever);
        ++finished;
      },
      false);
  bus.Publish(TVKNotificationData(4, 14, L""));
  bus.Publish(TVKNotificationData(4, 14, L""));
  runtime.Wait(*entered, platform::kForever);
  std::atomic<int> finished_at_return = 0;
  std::thread leaver = runtime.StartThread("leaver", [&] {
    bus.Unsubscribe(id);
    finished_at_return = finished.load();
  });
  runtime.Settle();
  EXPECT_EQ(finished_at_return, 0);
  proceed->Set();
  runtime.Join(leaver);
  EXPECT_EQ(finished_at_return, 1);
  runtime.Settle();
  EXPECT_EQ(finished, 1);
}

TEST(PublisherSubscriberTest, CallbackMayUnsubscribeItselfAndANewSubscriberMayAskForTheLastNews) {
  VirtualRuntime runtime;
  TVKPublisherSubscriber bus(runtime);
  std::atomic<int> calls = 0;
  std::wstring id;
  id = bus.Subscribe(
      [&](TVKNotificationData&) {
        ++calls;
        bus.Unsubscribe(id);
      },
      false);
  bus.Publish(TVKNotificationData(4, 14, L"one"));
  bus.Publish(TVKNotificationData(4, 18, L"two"));
  runtime.Settle();
  EXPECT_EQ(calls, 1);
  std::wstring replayed;
  bus.Subscribe([&](TVKNotificationData& data) { replayed = data.getPayload(); }, true);
  runtime.Settle();
  EXPECT_EQ(replayed, L"two");
}

TEST(NotificationDataTest, ReadsTheTvkPolicyPayloadAndRefusesAnythingElse) {
  TVKNotificationData data;
  ASSERT_TRUE(data.deserializePayloadForTvkPolicy(MakeTvkPolicyPayload(L"a\\b \"Größe\"", L"sub", true)));
  EXPECT_EQ(data.device_path(), L"a\\b \"Größe\"");
  EXPECT_EQ(data.device_subscription(), L"sub");
  EXPECT_TRUE(data.is_device_path_change());
  EXPECT_TRUE(data.deserializePayloadForTvkPolicy(L"{}"));
  for (const std::wstring& bad :
       {std::wstring(), std::wstring(L"[]"), std::wstring(L"{"), std::wstring(100000, L'['),
        std::wstring(L"{\"devicePath\":1}"), std::wstring(L"{\"isDevicePathChange\":\"yes\"}")}) {
    EXPECT_FALSE(data.deserializePayloadForTvkPolicy(bad));
    EXPECT_TRUE(data.device_path().empty());
    EXPECT_FALSE(data.is_device_path_change());
  }
}

}  // namespace TVK

// The local channel under attack: whoever may connect may send anything, any number of times, or nothing at all.
#include <gtest/gtest.h>

#include <array>
#include <iostream>
#include <random>
#include <thread>

#include "client/channel/channel_client.h"
#include "platform/local.h"
#include "tests/attack/attack_world.h"

namespace {

using platform::ChannelWait;

class ChannelAttack : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(service_.WaitForLine("DeviceInit", kPatience)); }
  /// The service goes on, and the store is whole.
  void TearDown() override {
    EXPECT_TRUE(IsAnswered());
    service_.Ask(ChildRequest::kTerminate);
    EXPECT_EQ(service_.WaitForEnd(kPatience), 0);
    target_.NoteShown(service_.Lines());
    Report("local channel", rounds_, target_.Look());
  }

  /// Whether somebody who behaves gets an answer within the time after which those who do not are put out.
  bool IsAnswered() {
    TVK::ChannelClient client(*runtime_, place_);
    const platform::SteadyTime latest = runtime_->clock().Steady() + kPatience;
    while (runtime_->clock().Steady() < latest) {
      if (client.Ask({.wish = TVK::ChannelWish::kStatus}).result == 0) return true;
      runtime_->Wait(*never_, std::chrono::milliseconds(100));
    }
    return false;
  }
  std::unique_ptr<platform::LocalConnection> Connect() {
    return platform::ConnectLocally(*runtime_, place_, nullptr, Deadline()).connection;
  }
  platform::SteadyTime Deadline() const { return runtime_->clock().Steady() + std::chrono::milliseconds(50); }

  Target target_;
  const std::filesystem::path place_ = platform::ChannelPlace(target_.folder().data());
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Event> never_ = runtime_->MakeEvent(platform::EventReset::kManual);
  ChildProcess service_{ProgramBeside("TVKClientService"), target_.Life(600000)};
  std::size_t rounds_ = 0;
};

TEST_F(ChannelAttack, AnyBytes) {
  std::mt19937 random(5);
  const std::string greeting = TVK::FrameOf(TVK::GreetingToJson());
  const std::string request = TVK::ToJson(TVK::ChannelRequest{TVK::ChannelWish::kStatus});
  for (rounds_ = 0; rounds_ < Asked("TVK_ATTACK_MESSAGES", 2000); ++rounds_) {
    const auto connection = Connect();
    if (connection == nullptr) continue;  // no room just now
    std::string bytes = random() % 2 == 0 ? greeting : std::string();
    std::string message = random() % 3 == 0 ? std::string(random() % 70'000, '{') : request;
    for (std::size_t damage = random() % 8; damage > 0; --damage)
      message[random() % message.size()] = static_cast<char>(random());
    std::string frame = TVK::FrameOf(message);
    if (random() % 4 == 0) frame[random() % 4] = static_cast<char>(random());
    bytes += frame.substr(0, random() % 2 == 0 ? frame.size() : random() % (frame.size() + 1));
    connection->Send(bytes, Deadline());
    std::array<char, 4096> answer;
    std::size_t count = 0;
    if (random() % 2 == 0) connection->Receive(answer, Deadline(), count);
    if (rounds_ % 100 == 0) {
      EXPECT_TRUE(IsAnswered());
    }
  }
}

TEST_F(ChannelAttack, AThousandConnectionsThatSayNothing) {
  std::vector<std::unique_ptr<platform::LocalConnection>> held;
  for (rounds_ = 0; rounds_ < 1000; ++rounds_) {
    auto connection = Connect();
    if (connection == nullptr) continue;
    if (rounds_ % 2 == 0) connection->Send(TVK::FrameOf(TVK::GreetingToJson()).substr(0, 6), Deadline());
    held.push_back(std::move(connection));
  }
  EXPECT_GE(held.size(), 32u);
  EXPECT_TRUE(IsAnswered()) << "while they are all still there";
}

TEST_F(ChannelAttack, AFloodOfRequests) {
  std::atomic<bool> ended = false;
  std::atomic<std::size_t> answered = 0;
  std::vector<std::jthread> flood;
  for (int i = 0; i < 20; ++i) {
    flood.emplace_back([&] {
      TVK::ChannelClient client(*runtime_, place_);
      while (!ended) {
        if (client.Ask({.wish = TVK::ChannelWish::kPolicy}).result == 0) ++answered;
      }
    });
  }
  for (int i = 0; i < 20; ++i)
    EXPECT_TRUE(IsAnswered());
  ended = true;
  flood.clear();
  rounds_ = answered;
  EXPECT_GT(rounds_, 100u);
}

}  // namespace

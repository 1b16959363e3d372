// Whole messages over a connection.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "client/channel/frame.h"
#include "platform/local_channel.h"

namespace TVK {

/// One thread at a time.
class MessageStream {
 public:
  /// `longest`: of the messages that are received.
  MessageStream(std::unique_ptr<platform::LocalConnection> connection, std::size_t longest)
      : connection_(std::move(connection)), reader_(longest) {}

  void SetLongest(std::size_t longest) { reader_.SetLongest(longest); }

  /// Waits for the next whole message. kClosed also for bytes that are no message: HasBroken says so.
  platform::ChannelWait Receive(std::string& message, platform::SteadyTime deadline);
  platform::ChannelWait Send(std::string_view message, platform::SteadyTime deadline) {
    return connection_->Send(FrameOf(message), deadline);
  }

  bool HasBroken() const { return broken_; }
  /// Whether a message has begun to come and is not whole.
  bool HoldsPart() const { return reader_.HoldsPart(); }
  std::optional<platform::LocalCaller> Identify() { return connection_->Identify(); }
  std::optional<std::uint32_t> ClaimedSession() { return connection_->ClaimedSession(); }
  bool HasHungUp() { return connection_->HasHungUp(); }

 private:
  const std::unique_ptr<platform::LocalConnection> connection_;
  FrameReader reader_;
  bool broken_ = false;
};

}  // namespace TVK

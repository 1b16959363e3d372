#include "client/channel/message_stream.h"

#include <array>

namespace TVK {

platform::ChannelWait MessageStream::Receive(std::string& message, platform::SteadyTime deadline) {
  for (;;) {
    switch (reader_.Next(message)) {
      case FrameReader::State::kMessage:
        return platform::ChannelWait::kDone;
      case FrameReader::State::kBroken:
        broken_ = true;
        return platform::ChannelWait::kClosed;
      case FrameReader::State::kIncomplete:
        break;
    }
    std::array<char, 4096> buffer;
    std::size_t count = 0;
    const platform::ChannelWait wait = connection_->Receive(buffer, deadline, count);
    if (wait != platform::ChannelWait::kDone) return wait;
    reader_.Append({buffer.data(), count});
  }
}

}  // namespace TVK

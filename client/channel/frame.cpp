#include "client/channel/frame.h"

#include <cstdint>

namespace TVK {
namespace {

constexpr std::size_t kLengthBytes = 4;

}  // namespace

std::string FrameOf(std::string_view message) {
  std::string frame;
  frame.reserve(kLengthBytes + message.size());
  for (std::size_t i = 0; i < kLengthBytes; ++i)
    frame += static_cast<char>(message.size() >> (8 * i) & 0xFF);
  frame += message;
  return frame;
}

FrameReader::State FrameReader::Next(std::string& message) {
  if (bytes_.size() < kLengthBytes) return State::kIncomplete;
  std::size_t length = 0;
  for (std::size_t i = 0; i < kLengthBytes; ++i)
    length |= static_cast<std::size_t>(static_cast<std::uint8_t>(bytes_[i])) << (8 * i);
  if (length == 0 || length > longest_) return State::kBroken;
  if (bytes_.size() - kLengthBytes < length) return State::kIncomplete;
  message.assign(bytes_, kLengthBytes, length);
  bytes_.erase(0, kLengthBytes + length);
  return State::kMessage;
}

}  // namespace TVK

// Messages on a stream of bytes: four bytes of length, the lowest first, then so many bytes of the message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TVK {

/// The longest message that the service reads, and the longest that it answers with: a policy may be as long as its
/// file (kPolicySizeLimit), an observation needs a few thousand bytes.
inline constexpr std::size_t kLongestRequest = 32 << 10;
inline constexpr std::size_t kLongestAnswer = 2 << 20;
/// The longest with which a conversation begins, before it is known who calls.
inline constexpr std::size_t kLongestGreeting = 64;

/// `message` with its length before it.
std::string FrameOf(std::string_view message);

/// Takes the messages out of bytes as they come. It holds no more than has come, whatever a length announces. One
/// thread at a time.
class FrameReader {
 public:
  enum class State {
    kIncomplete,  ///< More must come first.
    kMessage,
    kBroken,  ///< A length of nothing, or above the limit; so it stays.
  };

  explicit FrameReader(std::size_t longest) : longest_(longest) {}
  /// For the messages from the next one on.
  void SetLongest(std::size_t longest) { longest_ = longest; }

  void Append(std::string_view bytes) { bytes_ += bytes; }
  /// Takes the next message; `message` stays untouched unless kMessage.
  State Next(std::string& message);
  /// Whether a message has begun and is not whole.
  bool HoldsPart() const { return !bytes_.empty(); }

 private:
  std::size_t longest_;
  std::string bytes_;
};

}  // namespace TVK

// Any bytes as what a caller of the local channel sends: frames come out the same however the bytes are cut, and what
// is read as a request is within its bounds and the same when it is written and read again.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "client/channel/channel_request.h"
#include "client/channel/frame.h"

namespace {

constexpr std::size_t kLongest = 4096;

void Require(bool holds) {
  if (!holds) std::abort();
}

struct Read {
  std::vector<std::string> messages;
  bool broken = false;
};

Read ReadFrames(std::string_view bytes, std::size_t step) {
  TVK::FrameReader reader(kLongest);
  Read read;
  while (!bytes.empty() && !read.broken) {
    reader.Append(bytes.substr(0, step));
    bytes.remove_prefix(std::min(step, bytes.size()));
    std::string message;
    TVK::FrameReader::State state;
    while ((state = reader.Next(message)) == TVK::FrameReader::State::kMessage) {
      Require(!message.empty() && message.size() <= kLongest);
      read.messages.push_back(message);
    }
    read.broken = state == TVK::FrameReader::State::kBroken;
  }
  return read;
}

void CheckData(const ItemData& data) {
  Require(data.size() <= TVK::kMostItemValues);
  for (const auto& [key, value] : data)
    Require(!key.empty() && key.size() <= TVK::kLongestName && value.size() <= TVK::kLongestValue);
}

void CheckRequest(std::string_view text) {
  TVK::GreetingFromJson(text);
  std::string problem;
  const auto request = TVK::RequestFromJson(text, problem);
  Require(request.has_value() == problem.empty());
  if (!request) return;
  for (const std::wstring* const name : {&request->dataset_id, &request->item_name, &request->device_key})
    Require(name->size() <= TVK::kLongestName);
  CheckData(request->data);
  Require(request->devices.size() <= TVK::kMostDevices);
  for (const TVK::ObservedDevice& device : request->devices)
    CheckData(device.facts);
  Require(TVK::RequestFromJson(TVK::ToJson(*request), problem) == request);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const Read whole = ReadFrames(bytes, size + 1);
  const Read cut = ReadFrames(bytes, 1);
  Require(whole.messages == cut.messages && whole.broken == cut.broken);
  for (const std::string& message : whole.messages)
    CheckRequest(message);
  CheckRequest(bytes);
  TVK::AnswerFromJson(bytes);
  return 0;
}

#include "client/channel/channel_request.h"

#include <gtest/gtest.h>

#include "client/channel/frame.h"

namespace TVK {
namespace {

TEST(Frames, ComeOutWholeHoweverTheyCameIn) {
  const std::vector<std::string> sent = {"one", std::string(300, 'x'), std::string("\0\xFF", 2)};
  std::string bytes;
  for (const std::string& message : sent)
    bytes += FrameOf(message);
  for (std::size_t step = 1; step <= bytes.size(); step = step * 2 + 1) {
    FrameReader reader(300);
    std::vector<std::string> come;
    std::string message;
    for (std::size_t at = 0; at < bytes.size(); at += step) {
      reader.Append(std::string_view(bytes).substr(at, step));
      while (reader.Next(message) == FrameReader::State::kMessage)
        come.push_back(message);
    }
    EXPECT_EQ(come, sent) << step;
  }
}

TEST(Frames, OfALengthThatIsNoneAreBroken) {
  std::string message = "untouched";
  for (const std::string& bytes : {std::string(4, '\0'), FrameOf(std::string(11, 'x')), std::string(4, '\xFF')}) {
    FrameReader reader(10);
    reader.Append(bytes);
    EXPECT_EQ(reader.Next(message), FrameReader::State::kBroken);
  }
  FrameReader reader(10);
  reader.Append(FrameOf(std::string(10, 'x')));
  EXPECT_EQ(reader.Next(message), FrameReader::State::kMessage);
  EXPECT_FALSE(reader.HoldsPart());
}

TEST(Requests, AreReadAsTheyWereWritten) {
  const ChannelRequest requests[] = {
      {},
      {.wish = ChannelWish::kContext,
       .dataset_id = L"ID",
       .devices = {{L"one", {{L"Width", L"1920"}, {L"Näme", L"\"\\ \U0001F600"}}}, {L"", {}}},
       .new_context_needed = true},
      {.wish = ChannelWish::kItem, .item_name = L"Item", .device_key = L"key", .data = {{L"k", L""}}},
      {.wish = ChannelWish::kErase, .dataset_id = L"ID", .before_seconds = 1769850300},
      {.wish = ChannelWish::kErase, .all = true},
      {.wish = ChannelWish::kReport, .since_seconds = 1769850300},
  };
  for (const ChannelRequest& request : requests) {
    std::string problem;
    EXPECT_EQ(RequestFromJson(ToJson(request), problem), request) << problem;
  }
  const ChannelAnswer answer{-2, "reason", "{\"a\": 1}"};
  EXPECT_EQ(AnswerFromJson(ToJson(answer)), answer);
  EXPECT_EQ(GreetingFromJson(GreetingToJson()), kChannelVersion);
}

TEST(Requests, BeyondTheirBoundsAreRefused) {
  ChannelRequest long_name{.wish = ChannelWish::kItem, .item_name = std::wstring(kLongestName + 1, L'x')};
  ChannelRequest long_value{.wish = ChannelWish::kItem, .data = {{L"k", std::wstring(kLongestValue + 1, L'x')}}};
  ChannelRequest many_values{.wish = ChannelWish::kItem};
  for (std::size_t i = 0; i <= kMostItemValues; ++i)
    many_values.data[std::to_wstring(i)] = L"v";
  ChannelRequest many_devices{.wish = ChannelWish::kContext};
  many_devices.devices.resize(kMostDevices + 1);
  std::vector<std::string> texts = {"",
                                    "[]",
                                    "{",
                                    "{}",
                                    R"({"wish": "coffee"})",
                                    R"({"wish": 3})",
                                    R"({"wish": "item", "wish": "status"})",
                                    R"({"wish": "item", "more": 1})",
                                    R"({"wish": "erase", "before": "soon"})",
                                    R"({"wish": "erase", "before": "-1"})",
                                    R"({"wish": "erase"})",
                                    R"({"wish": "erase", "dataset": ""})",
                                    R"({"wish": "erase", "dataset": "ID", "before": ""})",
                                    R"({"wish": "erase", "dataset": "ID", "all": true})",
                                    R"({"wish": "item", "data": {"a": 1}})",
                                    R"({"wish": "item", "data": {"": "v"}})",
                                    R"({"wish": "item", "data": {"a": "\u0000"}})",
                                    R"({"wish": "item", "item": "\ud800"})",
                                    R"({"wish": "context", "devices": [{"key": "k", "more": "x"}]})",
                                    R"({"wish": "context", "devices": [{"key": "k"}, {"key": "k"}]})",
                                    "{\"wish\": \"item\", \"item\": \"\xFF\"}"};
  for (const ChannelRequest& request : {long_name, long_value, many_values, many_devices})
    texts.push_back(ToJson(request));
  for (const std::string& text : texts) {
    std::string problem;
    EXPECT_FALSE(RequestFromJson(text, problem)) << text.substr(0, 80);
    EXPECT_NE(problem, "") << text.substr(0, 80);
  }
}

}  // namespace
}  // namespace TVK

#include "client/text/record_time.h"

#include <gtest/gtest.h>

#include "platform/simulated/virtual_runtime.h"

using platform::VirtualRuntime;
using TVK::FormatRecordTime;
using TVK::ParseRecordTime;

TEST(RecordTimeTest, TextsGoThereAndBackInEveryZone) {
  for (const int offset : {0, 330, -210, 840}) {
    VirtualRuntime runtime({.utc_offset_minutes = offset});
    const std::int64_t moment = 1769850300;
    const std::wstring text = FormatRecordTime(moment, runtime.clock());
    EXPECT_EQ(ParseRecordTime(std::string(text.begin(), text.end()), runtime.clock()), moment) << offset;
  }
  VirtualRuntime runtime({.utc_offset_minutes = -210});
  EXPECT_EQ(FormatRecordTime(1769850300, runtime.clock()), L"2026-01-31T05:35:00-0330");
  EXPECT_EQ(FormatRecordTime(951'868'800 + 3600, runtime.clock()), L"2000-02-29T21:30:00-0330");
}

TEST(RecordTimeTest, TextsThatDoNotParseGiveWhatWasReadOrMinusOne) {
  VirtualRuntime runtime;
  const auto parse = [&](const char* text) { return ParseRecordTime(text, runtime.clock()); };
  for (const char* text : {"", "junk", "1969-12-31T23:59:59+0000", "T12:00:00"})
    EXPECT_EQ(parse(text), -1) << text;
  EXPECT_EQ(parse("2026-01-31T09:05:00+0200"), parse("2026-01-31T09:05:00+0000")) << "the offset does not count";
  EXPECT_EQ(parse("2026-01-31"), parse("2026-01-31T00:00:00+0000"));
  EXPECT_EQ(parse("2026-01-31T09:99:00"), parse("2026-01-31T09:00:00+0000"));
}

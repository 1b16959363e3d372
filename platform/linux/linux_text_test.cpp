// The texts of the kernel and of the distribution.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/proc_text.h"
#include "platform/linux/system_text.h"

namespace platform {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

TEST(ProcText, DecodesTheTimesOfAllProcessors) {
  const auto times = DecodeProcessorTimes("cpu  100 20 30 1000 50 5 6 7 40 10\ncpu0 1 2 3 4\n");
  ASSERT_TRUE(times);
  EXPECT_EQ(times->busy, 168u) << "guest time is in user already";
  EXPECT_EQ(times->idle, 1050u);
  EXPECT_EQ(DecodeProcessorTimes("cpu 1 2 3 4")->idle, 4u) << "an old kernel";
  for (const char* const text : {"", "cpu 1 2 3", "cpu0 1 2 3 4 5", "cpu 1 2 -3 4", "cpu 1 2 3 4 x",
                                 "cpu 1 2 3 18446744073709551615", "intr 5 1 2 3 4"}) {
    EXPECT_FALSE(DecodeProcessorTimes(text)) << text;
  }
}

TEST(ProcText, BusyShareIsRoundedAndNeverGarbage) {
  const ProcessorTimes before{1000, 5000};
  using Percent = std::optional<std::int32_t>;
  for (const auto& [after, percent] : std::initializer_list<std::pair<ProcessorTimes, Percent>>{{{1000, 5000}, {}},
                                                                                                {{1001, 5199}, 1},
                                                                                                {{1001, 5299}, 0},
                                                                                                {{1100, 5000}, 100},
                                                                                                {{999, 6000}, {}},
                                                                                                {{2000, 4999}, {}}}) {
    EXPECT_EQ(BusyPercent(before, after), percent) << after.busy << " " << after.idle;
  }
}

TEST(ProcText, DecodesMeminfoAndBootTime) {
  EXPECT_EQ(DecodeBootTime("cpu 1 2 3 4\nintr 1 btime 5\nbtime 1767222000\n"), 1767222000);
  EXPECT_FALSE(DecodeBootTime("btime soon\n"));
  const auto status = DecodeMeminfo("MemTotal:  8000000 kB\nMemFree: 100 kB\nMemAvailable:    2000000 kB\n");
  ASSERT_TRUE(status);
  EXPECT_EQ(status->load_percent, 75u);
  EXPECT_EQ(status->total_bytes, 8000000ull * 1024);
  EXPECT_EQ(status->available_bytes, 2000000ull * 1024);
  EXPECT_EQ(DecodeMeminfo("MemTotal: 100 kB\nMemFree: 10 kB\nBuffers: 20 kB\nCached: 30 kB\n")->load_percent, 40u);
  EXPECT_EQ(DecodeMeminfo("MemTotal: 100 kB\nMemAvailable: 500 kB\n")->load_percent, 0u);
  for (const char* const text : {"", "MemTotal: 0 kB\n", "MemTotal: lots\n", "MemAvailable: 5 kB\n"}) {
    EXPECT_FALSE(DecodeMeminfo(text)) << text;
  }
}

TEST(SystemText, DecodesAssignmentsAsAShellWould) {
  const Assignments values = DecodeAssignments(
      "# NAME=comment\n"
      "NAME=plain\r\n"
      "PRETTY_NAME=\"Some \\\"quoted\\\" \\$name \\n 12\"\n"
      "SINGLE='it\\s'\n"
      "  EMPTY=\n"
      "OPEN=\"no end\n"
      "1BAD=x\n"
      "not an assignment\n"
      "BARE=a\\ b\n"
      "NAME=last");
  EXPECT_THAT(values, UnorderedElementsAre(Pair("NAME", "last"), Pair("PRETTY_NAME", "Some \"quoted\" $name \\n 12"),
                                           Pair("SINGLE", "it\\s"), Pair("EMPTY", ""), Pair("BARE", "a b")));
  EXPECT_EQ(FirstValue(values, {"NONE", "EMPTY", "BARE", "NAME"}), "a b");
}

TEST(SystemText, DecodesLocaleNames) {
  for (const auto& [name, tag, territory] :
       {std::tuple("de_DE.UTF-8@euro", "de-DE", "DE"), std::tuple("C.UTF-8", "", ""), std::tuple("POSIX", "", ""),
        std::tuple("", "", ""), std::tuple("eo", "eo", ""), std::tuple("es_419", "es-419", "419"),
        std::tuple("../etc", "", ""), std::tuple("de_D", "", ""), std::tuple("_US", "", ""),
        std::tuple("de_\xC3\x84\xC3\x96", "", "")}) {
    const Locale locale = DecodeLocaleName(name);
    EXPECT_EQ(locale.tag, tag) << name;
    EXPECT_EQ(locale.territory, territory) << name;
  }
}

TEST(SystemText, TakesOnlyTimeZonesAndMachineIds) {
  EXPECT_EQ(TimeZoneOfLink("../usr/share/zoneinfo/America/Argentina/Salta"), "America/Argentina/Salta");
  EXPECT_EQ(TimeZoneOfLink("/somewhere/else"), "");
  EXPECT_EQ(MachineIdOf("00112233445566778899aabbccddeeff\n"), "00112233445566778899aabbccddeeff");
  EXPECT_EQ(MachineIdOf("uninitialized\n"), "");
  EXPECT_EQ(MachineIdOf("00112233445566778899AABBCCDDEEFF"), "");
}

TEST(SystemText, TakesTheActiveSessionsOfPersons) {
  const std::string session = "# state\nUID=1000\nACTIVE=1\nCLASS=user\n";
  EXPECT_EQ(DecodeSession(session)->user_id, "1000");
  EXPECT_FALSE(DecodeSession(session)->has_seat);
  EXPECT_TRUE(DecodeSession(session + "SEAT=seat0\n")->has_seat);
  for (const char* const change : {"ACTIVE=0", "CLASS=greeter", "UID=x", "UID=", "REMOTE=1"}) {
    EXPECT_FALSE(DecodeSession(session + change)) << change;
  }
}

}  // namespace
}  // namespace platform

#include "platform/linux/system_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace platform {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

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
  struct Case {
    const char *name, *tag, *territory;
  };
  for (const Case& c : {Case{"de_DE.UTF-8@euro", "de-DE", "DE"}, Case{"en_US", "en-US", "US"}, Case{"C", "", ""},
                        Case{"C.UTF-8", "", ""}, Case{"POSIX", "", ""}, Case{"", "", ""}, Case{"eo", "eo", ""},
                        Case{"es_419", "es-419", "419"}, Case{"sr_RS@latin", "sr-RS", "RS"}, Case{"../etc", "", ""},
                        Case{"de_D", "", ""}, Case{"_US", "", ""}, Case{"de_\xC3\x84\xC3\x96", "", ""}}) {
    const Locale locale = DecodeLocaleName(c.name);
    EXPECT_EQ(locale.tag, c.tag) << c.name;
    EXPECT_EQ(locale.territory, c.territory) << c.name;
  }
}

TEST(SystemText, FindsTheTimeZoneInALink) {
  EXPECT_EQ(TimeZoneOfLink("/usr/share/zoneinfo/America/Argentina/Salta"), "America/Argentina/Salta");
  EXPECT_EQ(TimeZoneOfLink("../usr/share/zoneinfo/UTC"), "UTC");
  EXPECT_EQ(TimeZoneOfLink("/somewhere/else"), "");
}

TEST(SystemText, TakesOnlyMachineIds) {
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

// The filter against another XPath engine, on generated queries and events, and what it refuses.
#include "platform/event_log_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "platform/event_query.h"
#include "testing/xpath_engine.h"

namespace platform {
namespace {

constexpr std::int64_t kForEver = std::numeric_limits<std::int64_t>::max();
constexpr WallTime kNow{std::chrono::hours(24 * 365 * 56)};

class Generator {
 public:
  unsigned Below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
  template <std::size_t N>
  std::string OneOf(const char* const (&texts)[N]) {
    return texts[Below(N)];
  }

  std::string Query() {
    std::string text = "<QueryList>";
    for (unsigned queries = 1 + Below(2); queries > 0; --queries) {
      text += "<Query>" + Element("Select");
      for (unsigned more = Below(4); more > 0; --more)
        text += Element(Below(2) == 0 ? "Suppress" : "Select");
      text += "</Query>";
    }
    return text + "</QueryList>";
  }

  LoggedEvent Event() {
    LoggedEvent event{.channel = OneOf(kChannels),
                      .provider = OneOf(kProviders),
                      .id = Below(8),
                      .level = Below(6),
                      .time = kNow - milliseconds(static_cast<int>(Below(12)) - 2),
                      .process = 7};
    event.data.push_back({OneOf({"", "a", "<&\">"}),
                          OneOf({"", "\x01 \xFF\xED\xA0\x80 \r\n", "<EventID>1</EventID>", "\u00e4\U0001F600"})});
    return event;
  }

 private:
  static constexpr const char* kChannels[] = {"Application", "System"};
  static constexpr const char* kProviders[] = {"disk", "ntfs", "Kernel-Power"};

  std::string Element(const std::string& name) {
    return "<" + name + " Path=\"" + OneOf(kChannels) + "\">*" + (Below(8) == 0 ? "" : "[System[" + Or(3) + "]]") +
           "</" + name + ">";
  }
  std::string Or(unsigned depth) { return Below(2) == 0 ? And(depth) : And(depth) + " or " + And(depth); }
  std::string And(unsigned depth) { return Below(2) == 0 ? Term(depth) : Term(depth) + " and " + Term(depth); }
  std::string Term(unsigned depth) {
    switch (Below(depth > 0 ? 6 : 4)) {
      case 0:
        return "EventID" + Comparison() + "0" + std::to_string(Below(8));
      case 1:
        return "Level " + Comparison() + " " + std::to_string(Below(6));
      case 2:
        return "TimeCreated[timediff( @SystemTime )" + Comparison() + std::to_string(Below(10)) + "]";
      case 3:
        return std::string("Provider[@Name='") + OneOf(kProviders) + "' or @Name = &quot;" + OneOf(kProviders) +
               "&quot;]";
      default:
        return "(" + Or(depth - 1) + ")";
    }
  }
  std::string Comparison() { return OneOf({"=", "!=", "&lt;", " &lt;= ", "&gt;", "&gt;="}); }

  std::mt19937 random_{1};  // NOLINT(cert-msc*): the same texts each time
};

bool EngineTakes(const std::vector<TVK::QueryElement>& elements, const LoggedEvent& event, const xmlDoc& xml) {
  const auto takes = [&](int query, bool suppress) {
    return std::ranges::any_of(elements, [&](const TVK::QueryElement& element) {
      return element.query == query && element.suppress == suppress && element.channel == event.channel &&
             TVK::AnswersXPath(xml, element.xpath, static_cast<double>((kNow - event.time).count()));
    });
  };
  return (takes(0, false) && !takes(0, true)) || (takes(1, false) && !takes(1, true));
}

TEST(EventLogFilterTest, AgreesWithAnotherEngine) {
  Generator generator;
  int taken = 0;
  for (int i = 0; i < 400; ++i) {
    const std::string query = generator.Query();
    const auto filter = EventLogFilter::Parse(query);
    const TVK::XmlDocument document = TVK::ParseXml(query);
    ASSERT_TRUE(filter && document) << query;
    const auto elements = TVK::QueryElements(*document);
    const auto channels = QueriesByChannel(*ReadEventQueries(query));
    for (int j = 0; j < 30; ++j) {
      const LoggedEvent event = generator.Event();
      const TVK::XmlDocument xml = TVK::ParseXml(XmlOf(event));
      ASSERT_NE(xml, nullptr) << XmlOf(event);
      const bool takes = EngineTakes(elements, event, *xml);
      ASSERT_EQ(filter->Takes(event, kNow), takes) << query << "\n" << XmlOf(event);
      if (takes) {
        EXPECT_LE((kNow - event.time).count(), filter->oldest_age().value_or(kForEver)) << query;
      }
      const auto own = std::ranges::find(channels, event.channel, &ChannelQuery::channel);
      ASSERT_EQ(own != channels.end() && EventLogFilter::Parse(own->text)->Takes(event, kNow), takes) << query;
      taken += takes;
    }
  }
  EXPECT_GT(taken, 2000);
  EXPECT_LT(taken, 10'000);
}

TEST(LoggedEventTest, SaysTheSameAsValuesAndAsXml) {
  const LoggedEvent event{.channel = "System",
                          .provider = "disk",
                          .id = 7,
                          .level = 2,
                          .time = WallTime(milliseconds(1)),
                          .record_id = 3,
                          .process = 4,
                          .thread = 5};
  const std::pair<const char*, EventLogValue> values[] = {{"Event/System/Channel", "System"},
                                                          {"Event/System/Provider/@Name", "disk"},
                                                          {"Event/System/Provider/@EventSourceName", "disk"},
                                                          {"Event/System/EventID", std::uint64_t{7}},
                                                          {"Event/System/Level", std::uint64_t{2}},
                                                          {"Event/System/EventRecordID", std::uint64_t{3}},
                                                          {"Event/System/Execution/@ProcessID", std::uint64_t{4}},
                                                          {"Event/System/Execution/@ThreadID", std::uint64_t{5}},
                                                          {"Event/System/TimeCreated/@SystemTime", event.time},
                                                          {"Event/System/Opcode", std::monostate()}};
  for (const auto& [path, value] : values)
    EXPECT_EQ(ValueAt(event, path), value) << path;
  EXPECT_EQ(
      XmlOf(event),
      "<Event><System><Provider Name=\"disk\"/><EventID>7</EventID><Level>2</Level>"
      "<TimeCreated SystemTime=\"1970-01-01T00:00:00.001Z\"/><EventRecordID>3</EventRecordID>"
      "<Execution ProcessID=\"4\" ThreadID=\"5\"/><Channel>System</Channel></System><EventData></EventData></Event>");
}

TEST(EventLogFilterTest, KnowsHowOldAnEventMayBe) {
  const auto age = [](const std::string& conditions) {
    return EventLogFilter::Parse("<QueryList><Query><Select Path='System'>*[System[" + conditions +
                                 "]]</Select><Suppress Path='System'>*</Suppress></Query></QueryList>")
        ->oldest_age();
  };
  const std::string hour = "TimeCreated[timediff(@SystemTime) &lt;= 3600000]";
  EXPECT_EQ(age("(EventID=1) and " + hour), 3'600'000);
  EXPECT_EQ(age("EventID=1 or " + hour), std::nullopt);
  EXPECT_EQ(age("TimeCreated[timediff(@SystemTime) &gt; 5]"), std::nullopt);
  EXPECT_EQ(age("TimeCreated[timediff(@SystemTime) &lt;= 18446744073709551615]"), kForEver);
}

TEST(EventLogFilterTest, AnotherLanguageIsNoQuery) {
  const auto select = [](const std::string& xpath) {
    return "<QueryList><Query><Select Path='System'>" + xpath + "</Select></Query></QueryList>";
  };
  const std::string deep(33, '(');
  EXPECT_TRUE(EventLogFilter::Parse(
      " <QueryList>\n<Query Id='0' Path=\"x\"> <Select Path='a'> * </Select></Query></QueryList> "));
  for (const std::string& query :
       {std::string(),
        std::string("*"),
        std::string("<QueryList></QueryList>"),
        std::string("<QueryList><Query>x</Query></QueryList>"),
        std::string("<QueryList><Query><Suppress Path='System'>*</Suppress></Query></QueryList>"),
        std::string("<QueryList><Query><Select>*</Select></Query></QueryList>"),
        std::string("<QueryList><Query><Select Path='a'>*</Suppress></Query></QueryList>"),
        select("*") + "x",
        select("*").substr(0, select("*").size() - 1),
        select("*[System[]]"),
        select("*[System[EventID]]"),
        select("*[System[EventIDs=1]]"),
        select("*[System[EventID=1 orLevel=2]]"),
        select("*[System[EventID=1.5]]"),
        select("*[System[(EventID=1]]"),
        select("*[System[EventID=x]]"),
        select("*[EventData[Data='x']]"),
        select("*[System[Provider[@Name='x]]]"),
        select("*[System[Provider[@Guid='x']]]"),
        select("&nbsp;*"),
        select("*[System[" + deep + "Level=1" + std::string(33, ')') + "]]")}) {
    EXPECT_FALSE(EventLogFilter::Parse(query)) << query;
  }
}

}  // namespace
}  // namespace platform

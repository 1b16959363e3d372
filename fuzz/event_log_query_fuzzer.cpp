// The whole builder of event-log queries, of any texts and any window: what it accepts gives XML and XPath that another
// engine reads, in which no list of conditions is empty or too long, and which selects the ids that the list names, of
// the window, and no others. Input: eight bytes of the window, then a line each of the channels, the levels and the
// ids.
#include <algorithm>
#include <bitset>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "client/text/string.h"
#include "monitors/logs/windows_logs_helper.h"
#include "platform/event_log_filter.h"
#include "testing/xpath_engine.h"

namespace {

using TVK::EventIdItem;
using Ids = std::bitset<65536>;

void Check(bool holds) {
  if (!holds) std::abort();
}

std::size_t CountOf(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + what.size()))
    ++count;
  return count;
}

unsigned Number(std::wstring_view digits) {
  return static_cast<unsigned>(std::stoul(std::wstring(digits)));
}

/// Whether one of the selecting or suppressing elements of that channel takes the event.
bool Takes(const std::vector<TVK::QueryElement>& elements, bool suppress, const std::string& channel,
           const xmlDoc& event, double age = 0) {
  return std::ranges::any_of(elements, [&](const TVK::QueryElement& element) {
    return element.suppress == suppress && element.channel == channel && TVK::AnswersXPath(event, element.xpath, age);
  });
}

/// The line of that number, from 0, of a text; empty where there is none.
std::wstring Line(std::string_view text, int number) {
  for (; number > 0; --number)
    text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  return TVK::String::UTF8ToUTF16(std::string(text.substr(0, text.find('\n'))));
}

/// Up to which the other engine's numbers, which are floating, tell one millisecond from the next.
constexpr unsigned long long kExactWindow = 1ULL << 52;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongest = 300;
  unsigned long long window = 0;
  if (size < sizeof window || size > kLongest) return 0;
  std::memcpy(&window, data, sizeof window);
  const std::string_view rest(reinterpret_cast<const char*>(data) + sizeof window, size - sizeof window);
  const std::wstring channels = Line(rest, 0);
  const std::wstring levels = Line(rest, 1);
  const std::wstring ids = Line(rest, 2);
  std::wstring query;
  const bool made = TVK::WindowsLogsHelper::generateQuery(channels, ids, levels, window, query);
  TVK::EventLogSelection selection;
  std::wstring fault;
  Check(made == TVK::WindowsLogsHelper::ReadSelection(channels, ids, levels, selection, fault));
  Check(made != query.empty() && made == fault.empty());
  if (!made) return 0;

  const TVK::XmlDocument document = TVK::ParseXml(TVK::String::UTF16ToUTF8(query));
  Check(document != nullptr);
  const auto elements = TVK::QueryElements(*document);
  for (const TVK::QueryElement& element : elements) {
    Check(element.suppress || CountOf(element.xpath, "<= " + std::to_string(window) + "]") == 1);
    Check(CountOf(element.xpath, "EventID") + CountOf(element.xpath, "Level") + CountOf(element.xpath, "TimeCreated") <=
          TVK::WindowsLogsHelper::kMostConditions);
  }
  const auto filter = platform::EventLogFilter::Parse(TVK::String::UTF16ToUTF8(query));
  Check(filter.has_value());
  Ids selected;
  Ids suppressed;
  bool all = true;
  Ids at_edges;  // asking for each of 65536 would take too long
  for (const EventIdItem& item : selection.ids) {
    const unsigned first = Number(item.first);
    const unsigned last = item.last.empty() ? first : Number(item.last);
    all = all && item.suppressed;
    for (unsigned id = first; id <= last; ++id)
      (item.suppressed ? suppressed : selected).set(id);
    for (const unsigned id : {first, last, first == 0 ? 0 : first - 1, last == 65535 ? last : last + 1})
      at_edges.set(id);
  }
  at_edges.set(data[0]);
  const int level = selection.levels.empty() ? 3 : selection.levels.front();
  const std::string channel = TVK::String::UTF16ToUTF8(selection.channels.front());
  for (unsigned id = 0; id < at_edges.size(); ++id) {
    if (!at_edges[id]) continue;
    platform::LoggedEvent event{.channel = channel, .id = id, .level = static_cast<unsigned>(level)};
    const TVK::XmlDocument xml = TVK::ParseXml(platform::XmlOf(event));
    Check(Takes(elements, false, channel, *xml) == (all || selected[id]));
    Check(Takes(elements, true, channel, *xml) == suppressed[id]);
    const bool wanted = (all || selected[id]) && !suppressed[id];
    Check(filter->Takes(event, event.time) == wanted);
    if (window > kExactWindow) continue;
    const auto age = static_cast<std::int64_t>(window);
    for (const std::int64_t older : {0, 1}) {
      Check(filter->Takes(event, event.time + std::chrono::milliseconds(age + older)) == (wanted && older == 0));
      Check(Takes(elements, false, channel, *xml, static_cast<double>(age + older)) ==
            ((all || selected[id]) && older == 0));
    }
  }
  return 0;
}

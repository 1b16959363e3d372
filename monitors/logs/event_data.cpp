#include "monitors/logs/event_data.h"

#include <algorithm>
#include <optional>

#include "platform/xml_text.h"

namespace TVK {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

/// Where the start tag of that name begins ("<Data"); npos without one. '<' stands for itself nowhere else in XML.
std::size_t FindStart(std::string_view xml, std::string_view start) {
  for (std::size_t at = xml.find(start); at != xml.npos; at = xml.find(start, at + 1)) {
    const std::size_t behind = at + start.size();
    if (behind < xml.size() &&
        (kBlanks.find(xml[behind]) != kBlanks.npos || xml[behind] == '>' || xml[behind] == '/')) {
      return at;
    }
  }
  return xml.npos;
}

struct StartTag {
  std::string name_attribute = {};
  bool empty = false;  ///< It is the end tag, too.
};

/// Takes the rest of a start tag, behind the element's name. Nothing when it is damaged.
std::optional<StartTag> TakeAttributes(std::string_view& rest) {
  StartTag tag;
  for (;;) {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
    tag.empty = rest.starts_with("/>");
    if (tag.empty || rest.starts_with('>')) {
      rest.remove_prefix(tag.empty ? 2 : 1);
      return tag;
    }
    const std::size_t equals = rest.find('=');
    if (equals == rest.npos || equals == 0) return std::nullopt;
    const std::size_t name_end = rest.find_last_not_of(kBlanks, equals - 1);
    const std::size_t open = rest.find_first_not_of(kBlanks, equals + 1);
    if (name_end == rest.npos || open == rest.npos || (rest[open] != '"' && rest[open] != '\'')) return std::nullopt;
    const std::size_t close = rest.find(rest[open], open + 1);
    if (close == rest.npos) return std::nullopt;
    if (rest.substr(0, name_end + 1) == "Name") {
      const auto value = platform::UnescapeXml(rest.substr(open + 1, close - open - 1));
      if (!value) return std::nullopt;
      tag.name_attribute = *value;
    }
    rest.remove_prefix(close + 1);
  }
}

}  // namespace

std::string_view EventDataElement(std::string_view xml) {
  constexpr std::string_view kEnd = "</EventData>";
  const std::size_t start = FindStart(xml, "<EventData");
  const std::size_t tag_end = xml.find('>', start);
  if (start == xml.npos || tag_end == xml.npos) return {};
  const std::size_t end = xml.find(kEnd, tag_end);
  if (xml[tag_end - 1] == '/' || end == xml.npos || end == tag_end + 1) return {};
  return xml.substr(start, end + kEnd.size() - start);
}

std::vector<EventDataItem> EventDataItems(std::string_view xml) {
  constexpr std::string_view kStart = "<Data";
  std::vector<EventDataItem> items;
  std::string_view rest = EventDataElement(xml);
  for (std::size_t at = FindStart(rest, kStart); at != rest.npos; at = FindStart(rest, kStart)) {
    rest.remove_prefix(at + kStart.size());
    auto tag = TakeAttributes(rest);
    if (!tag) break;
    EventDataItem& item = items.emplace_back(EventDataItem{.name = std::move(tag->name_attribute), .value = {}});
    if (tag->empty) continue;
    const std::string_view text = rest.substr(0, rest.find('<'));
    auto value = platform::UnescapeXml(text);
    rest.remove_prefix(text.size());
    if (!value || !rest.starts_with("</Data")) {
      items.pop_back();
      break;
    }
    item.value = std::move(*value);
  }
  return items;
}

}  // namespace TVK

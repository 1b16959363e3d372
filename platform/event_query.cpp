#include "platform/event_query.h"

#include <algorithm>
#include <utility>

#include "platform/xml_text.h"

namespace platform {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == ':';
}

/// Steps through the text; each step that does not find what it looks for leaves the text as it is or makes the whole
/// reading fail.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  std::optional<std::vector<EventQuery>> Read() {
    std::vector<EventQuery> queries;
    std::string path;
    if (!TakeStart("QueryList", path)) return std::nullopt;
    while (TakeStart("Query", path)) {
      EventQuery& query = queries.emplace_back();
      while (!Take("</Query>")) {
        if (!ReadElement(query)) return std::nullopt;
      }
    }
    if (!Take("</QueryList>")) return std::nullopt;
    SkipBlanks();
    const bool selects = std::ranges::any_of(queries, [](const EventQuery& query) {
      return std::ranges::count(query, false, &EventQueryElement::suppress);
    });
    return rest_.empty() && selects ? std::optional(std::move(queries)) : std::nullopt;
  }

 private:
  void SkipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size())); }

  bool Take(std::string_view token) {
    SkipBlanks();
    if (!rest_.starts_with(token)) return false;
    rest_.remove_prefix(token.size());
    return true;
  }

  std::string_view TakeName() {
    const auto end = std::ranges::find_if_not(rest_, IsNameCharacter);
    const std::string_view name = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    rest_.remove_prefix(name.size());
    return name;
  }

  /// A start tag and the value of its attribute Path, when it has one.
  bool TakeStart(std::string_view name, std::string& path) {
    const std::string_view before = rest_;
    if (Take("<") && TakeName() == name && TakeAttributes(path)) return true;
    rest_ = before;
    return false;
  }

  bool TakeAttributes(std::string& path) {
    while (!Take(">")) {
      const std::string_view name = TakeName();
      if (name.empty() || !Take("=") || (!Take("'") && !Take("\""))) return false;
      const char quote = *(rest_.data() - 1);
      const std::size_t end = rest_.find(quote);
      if (end == rest_.npos || rest_.substr(0, end).find('<') != rest_.npos) return false;
      const auto value = UnescapeXml(rest_.substr(0, end));
      if (!value) return false;
      if (name == "Path") path = *value;
      rest_.remove_prefix(end + 1);
    }
    return true;
  }

  bool ReadElement(EventQuery& query) {
    SkipBlanks();
    const std::string_view begin = rest_;
    EventQueryElement element;
    element.suppress = TakeStart("Suppress", element.channel);
    if (!element.suppress && !TakeStart("Select", element.channel)) return false;
    const std::size_t length = rest_.find('<');
    if (length == rest_.npos || element.channel.empty()) return false;
    auto xpath = UnescapeXml(rest_.substr(0, length));
    rest_.remove_prefix(length);
    if (!xpath || !Take(element.suppress ? "</Suppress>" : "</Select>")) return false;
    element.xpath = std::move(*xpath);
    element.text = begin.substr(0, begin.size() - rest_.size());
    query.push_back(std::move(element));
    return true;
  }

  std::string_view rest_;
};

}  // namespace

std::optional<std::vector<EventQuery>> ReadEventQueries(std::string_view text) {
  return Reader(text).Read();
}

std::vector<ChannelQuery> QueriesByChannel(const std::vector<EventQuery>& queries) {
  std::vector<ChannelQuery> channels;
  for (const EventQuery& query : queries) {
    for (const EventQueryElement& element : query) {
      const bool known = std::ranges::find(channels, element.channel, &ChannelQuery::channel) != channels.end();
      if (!element.suppress && !known) channels.push_back({element.channel, {}});
    }
  }
  for (ChannelQuery& channel : channels) {
    channel.text = "<QueryList>";
    for (const EventQuery& query : queries) {
      std::string elements;
      bool selects = false;
      for (const EventQueryElement& element : query) {
        if (element.channel != channel.channel) continue;
        elements += element.text;
        selects = selects || !element.suppress;
      }
      if (selects) channel.text += "<Query>" + elements + "</Query>";
    }
    channel.text += "</QueryList>";
  }
  return channels;
}

}  // namespace platform

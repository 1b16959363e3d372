#include "monitors/logs/windows_logs_helper.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <optional>
#include <utility>

namespace TVK {
namespace {

constexpr wchar_t kAnd[] = L" and ";
constexpr wchar_t kOr[] = L" or ";
constexpr std::size_t kChannelBits = 4;
constexpr std::size_t kLevelBits = 8;

bool IsBitString(std::wstring_view text, std::size_t bits) {
  return text.size() == bits && text.find_first_not_of(L"01") == text.npos;
}

bool IsDigit(wchar_t character) {
  return character >= L'0' && character <= L'9';
}

/// The digits at the beginning of `rest`, which it takes away.
std::wstring_view TakeDigits(std::wstring_view& rest) {
  const auto end = std::ranges::find_if_not(rest, IsDigit);
  const std::wstring_view digits = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
  rest.remove_prefix(digits.size());
  return digits;
}

bool TakeCharacter(std::wstring_view& rest, wchar_t character) {
  if (!rest.starts_with(character)) return false;
  rest.remove_prefix(1);
  return true;
}

/// The items of a list without blanks; nothing when it is none by the grammar of eventIdsRegex. By hand: the library's
/// expressions go one call deeper with each character.
std::optional<std::vector<EventIdItem>> ParseEventIds(std::wstring_view list) {
  std::vector<EventIdItem> items;
  items.reserve(static_cast<std::size_t>(std::ranges::count(list, L',')) + 1);
  do {
    EventIdItem& item = items.emplace_back(EventIdItem{.suppressed = TakeCharacter(list, L'-')});
    item.first = TakeDigits(list);
    if (item.first.empty()) return std::nullopt;
    if (TakeCharacter(list, L'-')) {
      item.last = TakeDigits(list);
      if (item.last.empty()) return std::nullopt;
    }
  } while (TakeCharacter(list, L','));
  return list.empty() ? std::optional(std::move(items)) : std::nullopt;
}

/// Nothing above 65535: an event's id has 16 bits.
std::optional<unsigned> EventId(std::wstring_view digits) {
  constexpr unsigned kMost = 65535;
  unsigned id = 0;
  for (const wchar_t digit : digits) {
    id = id * 10 + static_cast<unsigned>(digit - L'0');
    if (id > kMost) return std::nullopt;
  }
  return id;
}

/// Why the item cannot be used; empty when it can.
std::wstring FaultOf(const EventIdItem& item) {
  const auto first = EventId(item.first);
  const auto last = item.last.empty() ? first : EventId(item.last);
  if (!first || !last) return L"an event id is above 65535";
  if (*first > *last) {
    return std::wstring(L"the range ").append(item.first).append(L"-").append(item.last) + L" ends before it begins";
  }
  return {};
}

void AddCondition(const EventIdItem& item, std::wstring& query) {
  if (item.last.empty()) {
    query.append(L"EventID=").append(item.first);
  } else {
    query.append(L"(EventID &gt;= ").append(item.first).append(L" and EventID &lt;= ").append(item.last).append(L")");
  }
}

std::size_t ConditionCount(const EventIdItem& item) {
  return item.last.empty() ? 1 : 2;
}

/// Of levels; level 0 comes with 4.
std::size_t ConditionCount(const std::vector<int>& levels) {
  return levels.size() + static_cast<std::size_t>(std::ranges::count(levels, 4));
}

std::wstring XPath(std::wstring conditions) {
  return conditions
      .insert(0,
              L"*"
              L"[System[")
      .append(L"]]");
}

void AddElements(std::wstring_view begin, const std::wstring& channel, const std::vector<std::wstring>& paths,
                 std::wstring_view end, std::wstring& query) {
  std::size_t length = query.size();
  for (const std::wstring& path : paths)
    length += begin.size() + channel.size() + path.size() + end.size() + 2;
  query.reserve(length);
  for (const std::wstring& path : paths)
    query.append(begin).append(channel).append(L"'>").append(path).append(end);
}

}  // namespace

const std::map<std::wstring, std::wstring> WindowsLogsHelper::channelBitMap = {
    {L"0000", L"None"}, {L"0001", L"Application"}, {L"0010", L"Security"}, {L"0100", L"Setup"}, {L"1000", L"System"}};

const std::map<std::wstring, int> WindowsLogsHelper::logLevelBitMap = {
    {L"00000000", 0}, {L"00000001", 1}, {L"00000010", 2}, {L"00000100", 3}, {L"00001000", 4}, {L"00010000", 5}};

std::wstring WindowsLogsHelper::getLevelName(const int& level) {
  constexpr std::array kNames = {L"Information", L"Critical", L"Error", L"Warning", L"Information", L"Verbose"};
  return level >= 0 && static_cast<std::size_t>(level) < kNames.size() ? kNames[static_cast<std::size_t>(level)] : L"";
}

bool WindowsLogsHelper::validateEventIds(const std::wstring& eventIds) {
  return eventIds.size() <= kLongestIdList && ParseEventIds(eventIds).has_value();
}

bool WindowsLogsHelper::validateLogLevel(const std::wstring& logLevels) {
  return IsBitString(logLevels, kLevelBits);
}

bool WindowsLogsHelper::ReadSelection(const std::wstring& channels, const std::wstring& eventIds,
                                      const std::wstring& logLevels, EventLogSelection& selection,
                                      std::wstring& fault) {
  selection = {};
  fault.clear();
  if (!IsBitString(channels, kChannelBits)) {
    fault = L"the channels are no four zeros and ones";
    return false;
  }
  const std::bitset<kChannelBits> wanted(channels);
  for (const auto& [bits, channel] : channelBitMap) {
    if ((std::bitset<kChannelBits>(bits) & wanted).any()) selection.channels.push_back(channel);
  }
  if (selection.channels.empty()) fault = L"no channel is chosen";

  if (!validateLogLevel(logLevels)) {
    fault = L"the levels are no eight zeros and ones";
    return false;
  }
  const std::bitset<kLevelBits> levels(logLevels);
  for (const auto& [bits, level] : logLevelBitMap) {
    if ((std::bitset<kLevelBits>(bits) & levels).any()) selection.levels.push_back(level);
  }

  const auto list = std::make_shared<std::wstring>(eventIds);
  std::erase(*list, L' ');
  selection.id_list = list;
  if (list->size() > kLongestIdList) {
    fault = L"the list of event ids is too long";
  } else if (!list->empty()) {
    auto items = ParseEventIds(*list);
    if (!items) fault = L"the list of event ids does not match " + eventIdsRegex;
    if (items) selection.ids = std::move(*items);
  }
  for (const EventIdItem& item : selection.ids) {
    if (fault.empty()) fault = FaultOf(item);
  }
  return fault.empty();
}

bool WindowsLogsHelper::generateQuery(const std::wstring& channels, const std::wstring& eventIds,
                                      const std::wstring& logLevels, const unsigned long long& timeRange,
                                      std::wstring& query) {
  query.clear();
  EventLogSelection selection;
  std::wstring fault;
  if (!ReadSelection(channels, eventIds, logLevels, selection, fault)) return false;
  query.append(L"<QueryList><Query>").append(getQuery(selection, timeRange)).append(L"</Query></QueryList>");
  return true;
}

std::wstring WindowsLogsHelper::getQuery(const EventLogSelection& selection, unsigned long long timeRange) {
  const Texts selects = getFinalSelectQueries(selection, timeRange);
  const Texts suppresses = getFinalSuppressQueries(selection);
  std::wstring query;
  for (const std::wstring& channel : selection.channels) {
    AddElements(L"<Select Path='", channel, selects, L"</Select>", query);
    AddElements(L"<Suppress Path='", channel, suppresses, L"</Suppress>", query);
  }
  return query;
}

WindowsLogsHelper::Texts WindowsLogsHelper::getFinalSelectQueries(const EventLogSelection& selection,
                                                                  unsigned long long timeRange) {
  const std::wstring levels = getLogLevelQuery(selection.levels);
  const std::wstring time = getTimeRangeQuery(timeRange);
  Texts ids = getEventIdsQueries(selection, false, kMostConditions - ConditionCount(selection.levels) - 1);
  if (ids.empty()) ids.emplace_back();
  Texts selects;
  const std::wstring rest = joinStrings({levels, time}, kAnd);
  for (std::wstring& some : ids) {
    if (!some.empty()) some += kAnd;
    selects.push_back(XPath(std::move(some.append(rest))));
  }
  return selects;
}

WindowsLogsHelper::Texts WindowsLogsHelper::getFinalSuppressQueries(const EventLogSelection& selection) {
  Texts suppresses;
  for (const std::wstring& some : getEventIdsQueries(selection, true, kMostConditions))
    suppresses.push_back(XPath(some));
  return suppresses;
}

WindowsLogsHelper::Texts WindowsLogsHelper::getEventIdsQueries(const EventLogSelection& selection, bool suppressed,
                                                               std::size_t room) {
  constexpr std::size_t kConditionLength = 20;  // about
  constexpr std::size_t kRestLength = 180;      // about: levels, time and what an XPath begins with
  Texts queries;
  std::size_t count = room;  // of conditions in the last of them
  for (const EventIdItem& item : selection.ids) {
    if (item.suppressed != suppressed) continue;
    const bool opens = count + ConditionCount(item) > room;
    if (opens) {
      if (!queries.empty()) queries.back() += L')';
      queries.emplace_back(L"(").reserve(room * kConditionLength + kRestLength);
      count = 0;
    } else {
      queries.back() += kOr;
    }
    AddCondition(item, queries.back());
    count += ConditionCount(item);
  }
  if (!queries.empty()) queries.back() += L')';
  return queries;
}

std::wstring WindowsLogsHelper::getLogLevelQuery(const std::vector<int>& levels) {
  Texts conditions;
  for (const int level : levels) {
    conditions.emplace_back(L"Level=") += static_cast<wchar_t>(L'0' + level);
    if (level == 4) conditions.back() += L" or Level=0";
  }
  return conditions.empty() ? std::wstring() : L"(" + joinStrings(conditions, kOr) + L")";
}

std::wstring WindowsLogsHelper::getTimeRangeQuery(unsigned long long timeRange) {
  return L"TimeCreated[timediff(@SystemTime) &lt;= " + std::to_wstring(timeRange) + L"]";
}

std::wstring WindowsLogsHelper::joinStrings(const Texts& parts, std::wstring_view separator) {
  std::size_t length = 0;
  for (const std::wstring& part : parts)
    length += part.size() + separator.size();
  std::wstring joined;
  joined.reserve(length);
  for (const std::wstring& part : parts) {
    if (!joined.empty()) joined += separator;
    joined += part;
  }
  return joined;
}

}  // namespace TVK

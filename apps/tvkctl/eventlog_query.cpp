#include "apps/tvkctl/eventlog_query.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "apps/exit_code.h"
#include "client/text/interval.h"
#include "client/text/string.h"
#include "monitors/logs/windows_logs_helper.h"

namespace tvkctl {
namespace {

using TVK::EventIdItem;
using TVK::String;
using Texts = std::vector<std::wstring>;

/// Nothing when it is none, and for one of more milliseconds than 64 bits hold.
std::optional<unsigned long long> ParseWindow(const std::wstring& text) {
  const bool plain = !text.empty() && text.find_first_not_of(L"0123456789") == text.npos;
  const std::wstring pattern = L"^\\d+(ms|s|m|h|d)$";
  const std::wstring with_unit = plain ? text + L"ms" : text;
  const auto milliseconds = TVK::utility::GetIntervalInMillisecondsGivenRegex(with_unit, pattern);
  // It is 0 for what it cannot read, too.
  const bool is_zero = with_unit.find_first_of(L"123456789") == with_unit.npos;
  if (milliseconds == 0 && !(is_zero && TVK::utility::IntervalTextMatches(with_unit, pattern))) return std::nullopt;
  return milliseconds;
}

/// "1", "1 and 2", "1, 2 and 3".
std::wstring Enumerate(const Texts& texts) {
  std::wstring all;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) all += i + 1 == texts.size() ? L" and " : L", ";
    all += texts[i];
  }
  return all;
}

std::wstring IdsInWords(const std::vector<EventIdItem>& ids, bool suppressed) {
  Texts texts;
  for (const EventIdItem& item : ids) {
    if (item.suppressed == suppressed) {
      std::wstring& text = texts.emplace_back(item.first);
      if (!item.last.empty()) text.append(L" to ").append(item.last);
    }
  }
  return Enumerate(texts);
}

/// The query of Information asks for level 0, too.
std::wstring LevelInWords(int level) {
  constexpr int kInformation = 4;
  return TVK::WindowsLogsHelper::getLevelName(level) + (level == kInformation ? L" (with level 0)" : L"");
}

/// Whether every id that the list asks for is left out by it, too.
bool SelectsNoId(const std::vector<EventIdItem>& ids) {
  constexpr std::size_t kIds = 65536;  // of 16 bits, see ReadSelection
  std::vector<bool> selected(kIds, std::ranges::all_of(ids, &EventIdItem::suppressed));
  for (const bool suppressed : {false, true}) {
    for (const EventIdItem& item : ids) {
      if (item.suppressed != suppressed) continue;
      const unsigned long last = std::stoul(std::wstring(item.last.empty() ? item.first : item.last));
      for (unsigned long id = std::stoul(std::wstring(item.first)); id <= last; ++id)
        selected[id] = !suppressed;
    }
  }
  return std::ranges::find(selected, true) == selected.end();
}

std::wstring Explain(const TVK::EventLogSelection& selection, const std::wstring& window) {
  const std::wstring selected = IdsInWords(selection.ids, false);
  const std::wstring suppressed = IdsInWords(selection.ids, true);
  Texts levels;
  std::ranges::transform(selection.levels, std::back_inserter(levels), LevelInWords);
  std::wstring words = L"events of " + Enumerate(selection.channels);
  words += selected.empty() ? L", of every id" : L", of the ids " + selected;
  if (!suppressed.empty()) words += L" but not " + suppressed;
  words += levels.empty() ? L", of every level" : L", of the levels " + Enumerate(levels);
  return words + L", of the last " + window;
}

}  // namespace

int RunEventLogQuery(const EventLogOptions& options, std::ostream& out, std::ostream& errors) {
  const auto refuse = [&](const std::string& why) {
    errors << "tvkctl: " << why << '\n';
    return kExitWrongConfiguration;
  };
  const std::wstring channels = String::UTF8ToUTF16(options.channels);
  const std::wstring ids = String::UTF8ToUTF16(options.ids);
  const std::wstring levels = String::UTF8ToUTF16(options.levels);
  const std::wstring window = String::UTF8ToUTF16(options.window);
  const auto milliseconds = ParseWindow(window);
  if (!milliseconds) {
    return refuse('"' + options.window + "\" is no time; examples: 3600000 (milliseconds), 90s, 24h, 7d");
  }
  TVK::EventLogSelection selection;
  std::wstring line;
  if (!TVK::WindowsLogsHelper::ReadSelection(channels, ids, levels, selection, line)) {
    return refuse(String::UTF16ToUTF8(line));
  }
  if (SelectsNoId(selection.ids)) return refuse("every event id that the list asks for is left out by it, too");
  if (options.explain) {
    const bool plain = window.back() >= L'0' && window.back() <= L'9';
    line = Explain(selection, plain ? window + L" ms" : window);
  } else {
    TVK::WindowsLogsHelper::generateQuery(channels, ids, levels, *milliseconds, line);
  }
  out << String::UTF16ToUTF8(line) << '\n';
  return kExitOk;
}

}  // namespace tvkctl

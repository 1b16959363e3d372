// Queries of the Windows event log from the compact settings of a log dataset. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TVK {

/// One id of a list, or a range of them; as its digits stand there, for as long as the list lives.
struct EventIdItem {
  bool suppressed = false;       ///< Taken out of what the others select.
  std::wstring_view first = {};  ///< 0..65535, as `last`.
  std::wstring_view last = {};   ///< Not below `first`; empty for a single id.
};

/// What such settings select.
struct EventLogSelection {
  std::vector<std::wstring> channels;  ///< "Application", "Security", "Setup", "System", in this order; never empty.
  std::shared_ptr<const std::wstring> id_list;  ///< What the ids are parts of.
  std::vector<EventIdItem> ids;                 ///< No id to select: all that are not suppressed.
  std::vector<int> levels;                      ///< 1..5, ascending; empty: all.
};

class WindowsLogsHelper {
 public:
  /// Bit strings of channels and levels; the rightmost character is bit 0.
  static const std::map<std::wstring, std::wstring> channelBitMap;
  static const std::map<std::wstring, int> logLevelBitMap;
  /// What a list of event ids looks like: numbers, ranges, and either behind a "-" to suppress it.
  inline static const std::wstring eventIdsRegex = L"((-\\d+-\\d+)|(\\d*(-)?\\d+))(,((-\\d+-\\d+)|(\\d*(-)?\\d+)))*";

  /// An XPath of more conditions than this fails as a whole on some versions of Windows, which begin to refuse at some
  /// twenty (Microsoft's page "Consuming Events" says 20). A longer list of ids is spread over several elements.
  static constexpr std::size_t kMostConditions = 20;
  static constexpr std::size_t kLongestIdList = 65536;  ///< Characters; a longer one is refused.

  /// The structured query of the events of `channels` (bit string of four) and `logLevels` (bit string of eight; no
  /// known bit: every level) with `eventIds` (a list, blanks anywhere in it, or empty: every id) of the last
  /// `timeRange` milliseconds, which always is a condition. Well-formed XML in which every condition stands in brackets
  /// of its own and none is empty; where the ids need more than one Select, the level and the time stand in each.
  /// False, and an empty `query`, for settings that FaultOf names.
  static bool generateQuery(const std::wstring& channels, const std::wstring& eventIds, const std::wstring& logLevels,
                            const unsigned long long& timeRange, std::wstring& query);

  /// "Critical", "Error", "Warning", "Information" (0, which is logged whatever is set, and 4) or "Verbose"; empty for
  /// any other level.
  static std::wstring getLevelName(const int& level);

  /// Whether the list is one by eventIdsRegex, without blanks. Numbers are not looked at.
  static bool validateEventIds(const std::wstring& eventIds);
  /// Whether these are eight zeros and ones.
  static bool validateLogLevel(const std::wstring& logLevels);

  /// Reads the settings. False, and why in `fault`, when nothing can be selected by them: no known channel, a bit
  /// string or a list that is none, an id above 65535, a range from a higher id to a lower one.
  static bool ReadSelection(const std::wstring& channels, const std::wstring& eventIds, const std::wstring& logLevels,
                            EventLogSelection& selection, std::wstring& fault);

 private:
  using Texts = std::vector<std::wstring>;

  static std::wstring getQuery(const EventLogSelection& selection, unsigned long long timeRange);
  /// One XPath each, of kMostConditions at most.
  static Texts getFinalSelectQueries(const EventLogSelection& selection, unsigned long long timeRange);
  static Texts getFinalSuppressQueries(const EventLogSelection& selection);
  /// The conditions on ids that are to be selected or suppressed, each text with at most `room` conditions.
  static Texts getEventIdsQueries(const EventLogSelection& selection, bool suppressed, std::size_t room);
  static std::wstring getLogLevelQuery(const std::vector<int>& levels);
  static std::wstring getTimeRangeQuery(unsigned long long timeRange);
  static std::wstring joinStrings(const Texts& parts, std::wstring_view separator);
};

}  // namespace TVK

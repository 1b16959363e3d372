// Structured queries held against events: what the Windows event log does with the same text, for logs that cannot, for
// as much of the language as is used here. In the elements of a query (event_query.h) stands
//
//   xpath    := * | *[System[ or ]]
//   or       := and { "or" and }        and := term { "and" term }
//   term     := ( or ) | EventID compared NUMBER | Level compared NUMBER
//             | Provider[ @Name = 'TEXT' { "or" @Name = 'TEXT' } ]
//             | TimeCreated[ timediff(@SystemTime) compared MILLISECONDS ]
//   compared := = | != | < | <= | > | >=
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/logged_event.h"

namespace platform {

/// Immutable; any thread.
class EventLogFilter {
 public:
  /// Nothing when the query is none of the language above, or its brackets nest deeper than 32.
  static std::optional<EventLogFilter> Parse(std::string_view query);

  /// Whether one of the queries has a Select that takes the event and no Suppress that does. `now`: what an event's age
  /// is counted to; the age of one that is logged later is below zero.
  bool Takes(const LoggedEvent& event, WallTime now) const;

  /// How old an event may be that it takes, in milliseconds; absent: of any age.
  std::optional<std::int64_t> oldest_age() const { return oldest_age_; }

 private:
  class Parser;
  enum class Field { kAny, kAll, kId, kLevel, kAge, kProvider };
  enum class Comparison { kEqual, kUnequal, kBelow, kAtMost, kAbove, kAtLeast };

  struct Condition {
    Field field = Field::kAll;
    Comparison comparison = Comparison::kEqual;
    std::int64_t number = 0;
    std::string text = {};
    std::vector<Condition> parts = {};  ///< Of kAny: one of them holds; of kAll: each does.
  };
  struct Element {
    bool suppress = false;
    std::string channel;
    Condition condition;
  };

  static bool Holds(const Condition& condition, const LoggedEvent& event, std::int64_t age);
  static std::optional<std::int64_t> OldestAge(const Condition& condition);

  std::vector<std::vector<Element>> queries_;
  std::optional<std::int64_t> oldest_age_;
};

}  // namespace platform

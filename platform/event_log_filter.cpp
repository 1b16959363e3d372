#include "platform/event_log_filter.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "platform/event_query.h"

namespace platform {

class EventLogFilter::Parser {
 public:
  explicit Parser(std::string_view xpath) : rest_(xpath) {}

  std::optional<Condition> Parse() {
    Condition condition;
    if (!Take("*")) return std::nullopt;
    if (Take("[") && !(TakeName("System") && Take("[") && TakeOr(condition) && Take("]") && Take("]"))) {
      return std::nullopt;
    }
    SkipBlanks();
    return rest_.empty() ? std::optional(std::move(condition)) : std::nullopt;
  }

 private:
  static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
  static bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || IsDigit(c) || c == '_' || c == '-' || c == '.';
  }

  void SkipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size())); }

  bool Take(std::string_view token) {
    SkipBlanks();
    if (!rest_.starts_with(token)) return false;
    rest_.remove_prefix(token.size());
    return true;
  }

  bool TakeName(std::string_view name) {
    SkipBlanks();
    if (!rest_.starts_with(name)) return false;
    if (rest_.size() > name.size() && IsNameCharacter(rest_[name.size()])) return false;
    rest_.remove_prefix(name.size());
    return true;
  }

  bool TakeOr(Condition& condition) {
    condition.field = Field::kAny;
    do {
      if (!TakeAnd(condition.parts.emplace_back())) return false;
    } while (TakeName("or"));
    return true;
  }

  bool TakeAnd(Condition& condition) {
    condition.field = Field::kAll;
    do {
      if (!TakeTerm(condition.parts.emplace_back())) return false;
    } while (TakeName("and"));
    return true;
  }

  bool TakeTerm(Condition& condition) {
    if (Take("(")) {
      constexpr int kDeepest = 32;
      if (++depth_ > kDeepest || !TakeOr(condition) || !Take(")")) return false;
      --depth_;
      return true;
    }
    if (TakeName("EventID")) return TakeComparison(Field::kId, condition);
    if (TakeName("Level")) return TakeComparison(Field::kLevel, condition);
    if (TakeName("Provider")) return Take("[") && TakeNames(condition) && Take("]");
    return TakeName("TimeCreated") && Take("[") && TakeName("timediff") && Take("(") && Take("@") &&
           TakeName("SystemTime") && Take(")") && TakeComparison(Field::kAge, condition) && Take("]");
  }

  bool TakeNames(Condition& condition) {
    condition.field = Field::kAny;
    do {
      if (!Take("@") || !TakeName("Name") || !Take("=") || (!Take("'") && !Take("\""))) return false;
      const std::size_t end = rest_.find(*(rest_.data() - 1));
      if (end == rest_.npos) return false;
      condition.parts.push_back({.field = Field::kProvider, .text = std::string(rest_.substr(0, end))});
      rest_.remove_prefix(end + 1);
    } while (TakeName("or"));
    return true;
  }

  /// One above the largest number counts as that.
  bool TakeComparison(Field field, Condition& condition) {
    // Longer ones before those that they begin with.
    static constexpr std::array<std::pair<std::string_view, Comparison>, 6> kComparisons = {
        {{"<=", Comparison::kAtMost},
         {"<", Comparison::kBelow},
         {">=", Comparison::kAtLeast},
         {">", Comparison::kAbove},
         {"!=", Comparison::kUnequal},
         {"=", Comparison::kEqual}}};
    condition.field = field;
    const auto* const found = std::ranges::find_if(kComparisons, [&](const auto& one) { return Take(one.first); });
    if (found == kComparisons.end()) return false;
    condition.comparison = found->second;
    SkipBlanks();
    if (rest_.empty() || !IsDigit(rest_.front())) return false;
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    for (; !rest_.empty() && IsDigit(rest_.front()); rest_.remove_prefix(1)) {
      const std::int64_t digit = rest_.front() - '0';
      condition.number = condition.number > (kMost - digit) / 10 ? kMost : condition.number * 10 + digit;
    }
    return rest_.empty() || rest_.front() != '.';
  }

  std::string_view rest_;
  int depth_ = 0;
};

std::optional<EventLogFilter> EventLogFilter::Parse(std::string_view query) {
  const auto queries = ReadEventQueries(query);
  if (!queries) return std::nullopt;
  EventLogFilter filter;
  filter.oldest_age_ = 0;
  for (const EventQuery& one : *queries) {
    std::vector<Element>& elements = filter.queries_.emplace_back();
    for (const EventQueryElement& element : one) {
      auto condition = Parser(element.xpath).Parse();
      if (!condition) return std::nullopt;
      if (!element.suppress) {
        const auto age = OldestAge(*condition);
        filter.oldest_age_ =
            age && filter.oldest_age_ ? std::optional(std::max(*age, *filter.oldest_age_)) : std::nullopt;
      }
      elements.push_back({element.suppress, element.channel, std::move(*condition)});
    }
  }
  return filter;
}

bool EventLogFilter::Takes(const LoggedEvent& event, WallTime now) const {
  const std::int64_t age = (now - event.time).count();
  const auto takes = [&](const std::vector<Element>& elements, bool suppress) {
    return std::ranges::any_of(elements, [&](const Element& element) {
      return element.suppress == suppress && element.channel == event.channel && Holds(element.condition, event, age);
    });
  };
  return std::ranges::any_of(
      queries_, [&](const std::vector<Element>& elements) { return takes(elements, false) && !takes(elements, true); });
}

bool EventLogFilter::Holds(const Condition& condition, const LoggedEvent& event, std::int64_t age) {
  const auto holds = [&](const Condition& part) { return Holds(part, event, age); };
  const auto compares = [&](std::int64_t value) {
    switch (condition.comparison) {
      case Comparison::kEqual:
        return value == condition.number;
      case Comparison::kUnequal:
        return value != condition.number;
      case Comparison::kBelow:
        return value < condition.number;
      case Comparison::kAtMost:
        return value <= condition.number;
      case Comparison::kAbove:
        return value > condition.number;
      case Comparison::kAtLeast:
        return value >= condition.number;
    }
    return false;
  };
  switch (condition.field) {
    case Field::kAny:
      return std::ranges::any_of(condition.parts, holds);
    case Field::kAll:
      return std::ranges::all_of(condition.parts, holds);
    case Field::kId:
      return compares(event.id);
    case Field::kLevel:
      return compares(event.level);
    case Field::kAge:
      return compares(age);
    case Field::kProvider:
      return event.provider == condition.text;
  }
  return false;
}

std::optional<std::int64_t> EventLogFilter::OldestAge(const Condition& condition) {
  std::optional<std::int64_t> oldest;
  switch (condition.field) {
    case Field::kAll:
      for (const Condition& part : condition.parts) {
        const auto age = OldestAge(part);
        if (age && (!oldest || *age < *oldest)) oldest = age;
      }
      return oldest;
    case Field::kAny:
      oldest = 0;
      for (const Condition& part : condition.parts) {
        const auto age = OldestAge(part);
        if (!age) return std::nullopt;
        oldest = std::max(oldest, age);
      }
      return oldest;
    case Field::kAge:
      if (condition.comparison == Comparison::kBelow || condition.comparison == Comparison::kAtMost ||
          condition.comparison == Comparison::kEqual) {
        return condition.number;
      }
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

}  // namespace platform

// The lines of a monitor's log that each dataset words in its own way.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace TVK {

/// A printf format with at most two %s and one %d; one that holds more does not compile. A constant.
class MonitorLine {
 public:
  // Implicit, so that a literal can stand where a line is wanted.
  consteval MonitorLine(const wchar_t* text = L"") : text_(text) {  // NOLINT(google-explicit-constructor)
    int texts = 0;
    int numbers = 0;
    for (const wchar_t* at = text; *at != 0; ++at) {
      if (*at != L'%') continue;
      ++at;
      if (*at == L's' && ++texts <= 2) continue;
      if (*at == L'd' && ++numbers <= 1) continue;
      throw "a line takes two texts and one number at most";
    }
  }

  bool empty() const { return *text_ == 0; }
  /// The line; each conversion takes the next argument of its kind. A line that begins with "%s:" begins with the
  /// `caller`, where one is given: the operation that logs it.
  std::wstring With(std::initializer_list<std::wstring_view> texts, std::int64_t number = 0,
                    std::wstring_view caller = {}) const;

 private:
  const wchar_t* text_;
};

/// Constant, and valid as long as the monitor. An empty line is left out of the log.
struct MonitorLines {
  // The first three may name their caller, Class::Operation.
  MonitorLine log_opened = {};   ///< Debug.
  MonitorLine context_decision;  ///< Debug; whether a context is written, and what the manager says of changes.
  MonitorLine context_failure;   ///< The store's result.
  MonitorLine init_failure;      ///< Debug.
  MonitorLine item_failure;      ///< The item's name, or `item_writer`; the store's result.
  const wchar_t* item_writer = nullptr;
  /// For an item that has no dataset context: the item's name and the device's key. It names the monitor's map.
  MonitorLine no_context = L"LogItemEvent(%s): the device \"%s\" has no dataset context; nothing is logged";
  MonitorLine unknown_item = L"LogItemEvent: there is no item \"%s\"; nothing is logged";  ///< The item's name.
};

}  // namespace TVK

// Lines for a terminal: columns first, then words that flow into as many lines as they need.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TVK {

/// Widths are cells. What could steer a terminal is shown as "?". No line ends with a blank.
class FlowingText {
 public:
  /// Less than 20 count as 20.
  explicit FlowingText(std::size_t width);

  /// The indent of the lines that follow; 4 at the begin.
  void SetIndent(std::size_t indent) { indent_ = indent; }
  /// At least `cells` wide with two behind it; in a line of its own where it does not fit into this one.
  void AddColumn(std::string_view text, std::size_t cells);
  /// One blank behind what stands there. One that fits into no line is broken, at a blank where there is one, with its
  /// further lines two deeper.
  void AddWord(std::string_view text);
  /// Goes on at `indent` of a new line, unless that is where the text stands.
  void NewLine(std::size_t indent);

  /// The text, with a line feed at its end.
  std::string Finish();

 private:
  /// In as many lines as it needs.
  void Flow(std::string_view rest, std::size_t cells);
  void Put(std::string_view text, std::size_t cells);

  const std::size_t width_;
  std::size_t indent_ = 4;
  std::string text_;
  std::size_t column_ = 0;  ///< Where the line ends.
  std::size_t gap_ = 0;     ///< Blanks ahead of what comes next in it.
  bool line_is_new_ = true;
};

}  // namespace TVK

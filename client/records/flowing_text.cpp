#include "client/records/flowing_text.h"

#include <algorithm>
#include <utility>

#include "client/text/cells.h"
#include "client/text/string.h"

namespace TVK {

FlowingText::FlowingText(std::size_t width) : width_(std::max<std::size_t>(width, 20)) {}

void FlowingText::AddColumn(std::string_view text, std::size_t cells) {
  const std::string shown = HarmlessText(text);
  const std::size_t used = CellsOf(shown);
  if (!line_is_new_ && column_ + gap_ + used > width_) NewLine(indent_);
  Flow(shown, used);
  gap_ += used < cells ? cells - used + 2 : 2;
}

void FlowingText::AddWord(std::string_view text) {
  const std::string shown = HarmlessText(text);
  const std::size_t cells = CellsOf(shown);
  if (!line_is_new_ && column_ + gap_ > indent_ && column_ + gap_ + cells > width_) NewLine(indent_);
  Flow(shown, cells);
  gap_ = 1;
}

void FlowingText::Flow(std::string_view rest, std::size_t cells) {
  const std::size_t deeper = std::min(column_ + gap_ + 2, width_ / 2);
  while (column_ + gap_ + cells > width_) {
    const std::size_t room = width_ > column_ + gap_ ? width_ - column_ - gap_ : 1;
    std::string_view line = FitIntoCells(rest, room);
    if (const std::size_t blank = line.find_last_of(' '); blank != line.npos && blank > line.size() / 2) {
      line = line.substr(0, blank + 1);
    }
    if (line.size() == rest.size()) break;
    Put(line, CellsOf(line));
    rest.remove_prefix(line.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));  // the end of a line stands for them
    cells = CellsOf(rest);
    NewLine(deeper);
  }
  Put(rest, cells);
}

void FlowingText::NewLine(std::size_t indent) {
  if (column_ + gap_ == indent) return;
  if (!line_is_new_) {
    text_.erase(text_.find_last_not_of(' ') + 1);
    text_ += '\n';
  }
  column_ = 0;
  gap_ = indent;
  line_is_new_ = true;
}

std::string FlowingText::Finish() {
  NewLine(0);
  if (text_.empty()) text_ += '\n';
  return std::move(text_);
}

void FlowingText::Put(std::string_view text, std::size_t cells) {
  if (text.empty()) return;  // a column without a text keeps its place by the gap
  text_.append(gap_, ' ');
  text_ += text;
  column_ += gap_ + cells;
  gap_ = 0;
  line_is_new_ = false;
}

}  // namespace TVK

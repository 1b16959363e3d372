#include "apps/tvkctl/output.h"

#include <json/writer.h>

#include <algorithm>
#include <ostream>

#include "client/records/flowing_text.h"
#include "client/text/cells.h"
#include "client/text/string.h"

namespace tvkctl {
namespace {

/// One cell of a hostile table may be of a megabyte; padding every row to it would make gigabytes.
constexpr std::size_t kWidestColumn = 64;
constexpr std::size_t kGap = 2;

std::string Harmless(const std::wstring& text) {
  return TVK::HarmlessText(TVK::String::UTF16ToUTF8(text), '.');
}

}  // namespace

void WriteColumns(const std::vector<std::vector<std::wstring>>& rows, std::ostream& out, std::size_t width) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], std::min(row[i].size(), kWidestColumn));
  }
  for (const auto& row : rows) {
    std::wstring line;
    std::size_t column_start = 0;
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i > 0) line.resize(std::max(column_start, line.size() + kGap), L' ');
      line += row[i];
      column_start += widths[i] + kGap;
    }
    line.erase(line.find_last_not_of(L' ') + 1);
    const std::string shown = Harmless(line);
    if (TVK::CellsOf(shown) <= width) {
      out << shown << '\n';
      continue;
    }
    TVK::FlowingText flowing(width);
    for (std::size_t i = 0; i < row.size(); ++i)
      flowing.AddColumn(Harmless(row[i]), widths[i]);
    out << flowing.Finish();
  }
}

Json::Value ItemDataToJson(const ItemData& data) {
  Json::Value value(Json::objectValue);
  for (const auto& [key, text] : data)
    value[TVK::String::UTF16ToUTF8(key)] = TVK::String::UTF16ToUTF8(text);
  return value;
}

void WriteJsonLine(const Json::Value& value, std::ostream& out) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  out << Json::writeString(builder, value) << '\n';
}

}  // namespace tvkctl

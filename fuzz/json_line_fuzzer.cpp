// Any text as a line of JSON: what is taken for one object is one for the strict reader of JSON, too.
#include <json/reader.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "client/records/json_line.h"
#include "client/text/string.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (!TVK::IsJsonObjectLine(text)) return 0;
  if (text.find('\n') != std::string_view::npos) std::abort();
  // The reader wants surrogates in pairs and knows no number beyond a double.
  if (text.find("\\u") != std::string_view::npos || text.find_first_of("eE") != std::string_view::npos || size > 300) {
    return 0;
  }
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["rejectDupKeys"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr) || !value.isObject()) std::abort();
  return 0;
}

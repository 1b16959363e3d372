// The report that the service tells: whatever comes, it is a report that can be told again, or none.
#include <json/reader.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "client/report/report_json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* const text = reinterpret_cast<const char*>(data);
  Json::CharReaderBuilder builder;
  builder["stackLimit"] = 32;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  try {
    if (!reader->parse(text, text + size, &value, nullptr)) return 0;
  } catch (const Json::Exception&) {  // nested too deep
    return 0;
  }
  const std::optional<TVK::Report> report = TVK::ReportFromJson(value);
  if (report && !TVK::ReportFromJson(TVK::ReportToJson(*report))) std::abort();
  return 0;
}

// The report that the service tells: whatever comes, it is none, or one that can be told again, a page in which every
// element that begins ends and no text is anything but text, and lines that steer no terminal.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "apps/tvkctl/report/asked_report.h"
#include "apps/tvkctl/report/report_page.h"
#include "apps/tvkctl/report/report_text.h"
#include "client/report/report_json.h"
#include "client/text/string.h"
#include "platform/simulated/virtual_runtime.h"

namespace {

void Require(bool ok) {
  if (!ok) std::abort();
}

// Lines ends aside nothing in it is a control character, turns a direction or is half a character.
void RequireHarmless(std::string text) {
  for (char& c : text) {
    if (c == '\n') c = ' ';
  }
  Require(TVK::HarmlessText(text) == text);
}

bool OneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  for (const std::string_view each : names) {
    if (name == each) return true;
  }
  return false;
}

// `tag` without its angle brackets: a name, then attributes of which each has a value in quotes.
void RequireAttributes(std::string_view tag) {
  std::size_t at = tag.find(' ');
  while (at < tag.size() && tag[at] == ' ' && tag.substr(at) != " /") {
    const std::size_t begin = tag.find("=\"", at);
    Require(begin != std::string_view::npos);
    const std::string_view name = tag.substr(at + 1, begin - at - 1);
    Require(!name.empty() && !name.starts_with("on") && name.find_first_of(" \"'=") == std::string_view::npos);
    Require(!OneOf(name, {"src", "srcset", "action", "formaction"}));
    const std::size_t end = tag.find('"', begin + 2);
    Require(end != std::string_view::npos);
    const std::string_view value = tag.substr(begin + 2, end - begin - 2);
    Require(name != "href" || value == "data:,");
    at = end + 1;
  }
  Require(at >= tag.size() || tag.substr(at) == "/" || tag.substr(at) == " /");
}

void RequireWellFormed(std::string_view page) {
  std::vector<std::string_view> open;
  for (std::size_t at = page.find('<'); at != std::string_view::npos; at = page.find('<', at)) {
    const std::size_t end = page.find('>', at);
    Require(end != std::string_view::npos);
    const std::string_view tag = page.substr(at + 1, end - at - 1);
    at = end;
    if (tag.starts_with('!')) continue;
    if (tag.starts_with('/')) {
      Require(!open.empty() && open.back() == tag.substr(1));
      open.pop_back();
      continue;
    }
    const std::string_view name = tag.substr(0, tag.find_first_of(" /"));
    Require(!OneOf(name, {"script", "img", "iframe", "object", "embed", "form", "base", "a"}));
    RequireAttributes(tag);
    if (!tag.ends_with('/') && !OneOf(name, {"meta", "link"})) open.push_back(name);
  }
  Require(open.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const platform::VirtualRuntime world;
  static const std::filesystem::path folder = "data";
  TVK::Report report;
  tvkctl::Standing standing;
  if (!tvkctl::ReadToldReport({reinterpret_cast<const char*>(data), size}, report, standing)) return 0;
  Require(TVK::ReportFromJson(TVK::ReportToJson(report)).has_value());
  const tvkctl::ReportSentences sentences(report, standing, folder, world.clock());
  const std::string page = tvkctl::ReportPage(report, standing, sentences);
  RequireHarmless(page);
  RequireWellFormed(page);
  for (const std::size_t width : {20, 80, 200})
    RequireHarmless(tvkctl::ReportText(report, sentences, width));
  while (TVK::Shorten(report))
    Require(TVK::ReportFromJson(TVK::ReportToJson(report)).has_value());
  return 0;
}

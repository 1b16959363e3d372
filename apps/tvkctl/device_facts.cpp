#include "apps/tvkctl/device_facts.h"

#include <array>
#include <ostream>
#include <utility>
#include <vector>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "client/policy/object_reader.h"
#include "client/policy/strict_json.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::DeviceTraits;

constexpr std::array<std::pair<const char*, std::wstring DeviceTraits::*>, 5> kFields = {{
    {"model", &DeviceTraits::model},
    {"manufacturer", &DeviceTraits::manufacturer},
    {"brand", &DeviceTraits::brand},
    {"osName", &DeviceTraits::os_name},
    {"osVersion", &DeviceTraits::os_version},
}};
constexpr std::size_t kSizeLimit = 1 << 16;

}  // namespace

int RunInspectFacts(const DeviceTraits& traits, bool json, std::ostream& out) {
  Json::Value value;
  std::vector<std::vector<std::wstring>> rows;
  for (const auto& [key, field] : kFields) {
    value[key] = TVK::String::UTF16ToUTF8(traits.*field);
    rows.push_back({TVK::String::UTF8ToUTF16(key), traits.*field});
  }
  json ? WriteJsonLine(value, out) : WriteColumns(rows, out);
  return kExitOk;
}

std::optional<DeviceTraits> ReadFactsFile(const std::filesystem::path& file, std::string& problem) {
  platform::FileProblem fault;
  const std::optional<std::string> text = platform::ReadWholeFile(file, kSizeLimit, &fault);
  if (!text) {
    problem = fault.text;
    return std::nullopt;
  }
  DeviceTraits traits;
  TVK::ProblemList problems;
  if (const std::optional<Json::Value> root = TVK::ReadStrictJson(*text, problems)) {
    TVK::ObjectReader reader(*root, "", problems);
    for (const auto& [key, field] : kFields)
      reader.Text(key, TVK::Presence::kOptional, traits.*field);
    reader.ReportUnknownKeys();
  }
  if (problems.count() == 0) return traits;
  const TVK::PolicyProblem first = problems.Take().front();
  problem = platform::PathToUtf8(file) + ": " + first.path + (first.path.empty() ? "" : ": ") + first.message;
  return std::nullopt;
}

}  // namespace tvkctl

#include "apps/tvkctl/command_text.h"

#include "platform/files.h"

namespace tvkctl {
namespace {

std::string Argument(const std::string& text) {
  return text.find_first_of(" \t'&()$;") == text.npos ? text : '"' + text + '"';
}

std::string DataOption(const std::filesystem::path& data_folder) {
  if (data_folder == platform::GetDefaultPlaces().data_folder) return {};
  return " --data-dir " + Argument(platform::PathToUtf8(data_folder));
}

}  // namespace

std::string CommandFor(const std::filesystem::path& data_folder) {
  return "tvkctl" + DataOption(data_folder);
}

std::string PolicyOption(const std::string& policy_file) {
  if (platform::PathFromUtf8(policy_file) == platform::GetDefaultPlaces().policy_file) return {};
  return " --policy " + Argument(policy_file);
}

std::string ConsoleCommand(const std::filesystem::path& policy_file, const std::filesystem::path& data_folder) {
  return "TVKClientService --console" + PolicyOption(platform::PathToUtf8(policy_file)) + DataOption(data_folder);
}

}  // namespace tvkctl

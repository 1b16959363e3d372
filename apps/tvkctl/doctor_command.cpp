#include "apps/tvkctl/doctor_command.h"

#include <algorithm>
#include <ostream>
#include <system_error>

#include "apps/exit_code.h"
#include "apps/tvkctl/command_text.h"
#include "apps/tvkctl/doctor.h"
#include "apps/tvkctl/status_command.h"
#include "client/text/string.h"
#include "platform/files.h"
#include "platform/service_control.h"

namespace tvkctl {
namespace {

using TVK::String;

const TVK::Dataset* FindDataset(const TVK::DatasetTable& table, const std::string& name) {
  const auto found = std::ranges::find_if(table.datasets(), [&](const TVK::Dataset& dataset) {
    return String::CaseInsesitiveEqual(dataset.row.name, String::UTF8ToUTF16(name));
  });
  return found == table.datasets().end() ? nullptr : &*found;
}

std::string Names(const TVK::DatasetTable& table) {
  std::string names;
  for (const TVK::Dataset& dataset : table.datasets())
    names += (names.empty() ? "" : ", ") + String::UTF16ToUTF8(dataset.row.name);
  return names;
}

std::string StartCommand(const DoctorOptions& options) {
  // Of another folder than the default one the service is not the one that this system starts.
  const platform::DefaultPlaces places = platform::GetDefaultPlaces();
  if (options.data_folder != places.data_folder) return ConsoleCommand(options.policy_file, options.data_folder);
  const platform::ServiceReport report = platform::ReadServiceReport();
  if (report.problem == platform::kNoServiceManager) return "systemctl start tvk-client-service";
  if (report.problem.empty() && report.state == platform::ServiceState::kNotInstalled) {
    return "TVKClientService install, TVKClientService start";
  }
  return "TVKClientService start";
}

}  // namespace

int RunDoctor(const DoctorOptions& options, const TVK::DatasetTable& table,
              const std::shared_ptr<platform::Machine>& machine, platform::Runtime& runtime, std::ostream& out,
              std::ostream& errors) {
  const TVK::Dataset* const dataset = FindDataset(table, options.dataset);
  if (dataset == nullptr && !options.dataset.empty()) {
    errors << "tvkctl: no dataset is named \"" << TVK::HarmlessText(options.dataset) << "\"; names: " << Names(table)
           << '\n';
    return kExitWrongCommandLine;
  }
  Symptoms symptoms{.start_command = StartCommand(options),
                    .policy_file = options.policy_file,
                    .data_folder = options.data_folder,
                    .try_source = [&](std::wstring_view name) { return TrySource(name, machine, runtime); }};
  symptoms.status = AskStatus(options.place, runtime, symptoms.no_answer, &symptoms.refused);
  std::error_code unknown;
  const std::filesystem::space_info space = std::filesystem::space(options.data_folder, unknown);
  if (!unknown) symptoms.free_bytes = space.available;
  return WriteDiagnosis(Examine(symptoms, dataset, runtime.clock()), options.json, out, options.width);
}

}  // namespace tvkctl

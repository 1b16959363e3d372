#include "apps/service/service_host.h"
#include "platform/program_entry.h"

int ProgramMain(std::vector<std::string> arguments) {
  int exit_code = kExitOk;
  const std::optional<ServiceOptions> options = ParseServiceOptions(std::move(arguments), exit_code);
  if (!options.has_value()) return exit_code;
  if (options->command != ServiceCommand::kRun) return ControlService(*options);
  if (!options->console) {
    const std::optional<int> served = RunUnderServiceManager(*options);
    if (served.has_value()) return *served;
  }
  return RunInProcess(*options);
}

// usage: manual_pages FOLDER DATE
// Writes the manual pages of the programs into FOLDER, dated DATE (2026-01-31). A part of the build.
#include <iostream>

#include "apps/exit_code.h"
#include "apps/service/service_options.h"
#include "apps/tvkctl/command_line.h"
#include "platform/files.h"
#include "platform/program_entry.h"

int ProgramMain(std::vector<std::string> arguments) {
  if (arguments.size() != 2) return kExitWrongCommandLine;
  const std::filesystem::path folder = platform::PathFromUtf8(arguments[0]);
  const std::string& date = arguments[1];
  for (const auto& [name, page] :
       {std::pair("tvkctl.1", tvkctl::TvkctlManualPage(date)), {"TVKClientService.8", ServiceManualPage(date)}}) {
    if (const std::string problem = platform::ReplaceFile(folder / name, page); !problem.empty()) {
      std::cerr << "manual_pages: " << problem << '\n';
      return kExitFailed;
    }
  }
  return kExitOk;
}

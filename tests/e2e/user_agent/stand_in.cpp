// Stands in for the user agent: runs until the service's stop event is set, and leaves a file beside itself that says
// how it ended.
#include <fstream>

#include "platform/local.h"
#include "platform/program_entry.h"
#include "platform/this_program.h"

int ProgramMain(std::vector<std::string> /*arguments*/) {
  const auto runtime = platform::MakeRealRuntime({});
  const platform::NamedEventResult stop = runtime->OpenNamedEvent(L"Global\\TvkUserAgentStopEvent");
  const std::filesystem::path folder = platform::ThisProgram().parent_path();
  if (stop.event == nullptr) {
    std::ofstream(folder / "no-event") << stop.error;
    return 1;
  }
  std::ofstream(folder / "running");
  const bool told = runtime->Wait(*stop.event, std::chrono::seconds(30)) == 0;
  std::ofstream(folder / (told ? "told" : "not-told"));
  return told ? 0 : 2;
}

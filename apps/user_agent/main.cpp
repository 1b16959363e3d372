// The component's second host, in the session of the logged-on user. The service starts and ends it; a person never
// does. "--service PLACE" names the data folder of a service that does not use the default one.
#include "platform/files.h"
#include "platform/program_entry.h"
#include "tvk/user_agent.h"

int ProgramMain(std::vector<std::string> arguments) {
  if (arguments.size() == 2 && arguments[0] == "--service") {
    TVK::UserAgent::SetService(platform::PathFromUtf8(arguments[1]));
  } else if (!arguments.empty()) {
    return 2;
  }
  CreateEventWindow();
  return 0;
}

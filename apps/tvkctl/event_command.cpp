#include "apps/tvkctl/event_command.h"

#include <optional>
#include <ostream>

#include "apps/exit_code.h"
#include "client/channel/channel_client.h"
#include "client/text/string.h"
#include "framework/dataset_monitor.h"

namespace tvkctl {
namespace {

using TVK::String;

// What the options ask of the service; nothing, and why, when it is no event.
std::optional<TVK::ChannelRequest> RequestOf(const EventOptions& options, std::string& problem) {
  TVK::ChannelRequest request{.wish = TVK::ChannelWish::kEvent, .item_name = String::UTF8ToUTF16(options.item)};
  for (const std::string& pair : options.data) {
    const std::size_t sign = pair.find('=');
    if (sign == 0 || sign == pair.npos) {
      problem = '"' + pair + "\" is not of the form KEY=VALUE";
      return std::nullopt;
    }
    const std::wstring value = String::UTF8ToUTF16(std::string_view(pair).substr(sign + 1));
    if (!request.data.emplace(String::UTF8ToUTF16(std::string_view(pair).substr(0, sign)), value).second) {
      problem = "the key \"" + pair.substr(0, sign) + "\" stands twice";
      return std::nullopt;
    }
  }
  // As the service reads it: what it would take for no request at all is a mistake of the command line.
  return TVK::RequestFromJson(ToJson(request), problem);
}

}  // namespace

int RunEvent(const EventOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors) {
  const auto fail = [&](const std::string& why, ExitCode code) {
    errors << "tvkctl: " << TVK::HarmlessText(why) << '\n';
    return code;
  };
  if (options.dataset != "TVKEvent") {
    return fail("the dataset TVKEvent alone takes events, not \"" + options.dataset + '"', kExitWrongCommandLine);
  }
  std::string problem;
  const std::optional<TVK::ChannelRequest> request = RequestOf(options, problem);
  if (!request) return fail(problem, kExitWrongCommandLine);
  const TVK::ChannelAnswer answer = TVK::ChannelClient(runtime, options.place).Ask(*request);
  if (answer.result == 0) {
    out << "written\n";
    return kExitOk;
  }
  const bool not_admitted =
      answer.result == TVK::DatasetMonitor::kWithheld || answer.result == TVK::SessionRecorder::kRefused;
  return fail(answer.reason, not_admitted ? kExitWrongConfiguration : kExitFailed);
}

}  // namespace tvkctl

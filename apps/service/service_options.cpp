#include "apps/service/service_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "apps/empty_values.h"
#include "apps/manual_page.h"
#include "apps/program_help.h"
#include "client/text/interval.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace {

constexpr char kDescription[] =
    "Runs the dataset monitors that the telemetry policy asks for and writes what they observe.";
constexpr HelpSection kSections[] = {
    {"Exit codes", "0 done, 1 wrong command line, 2 wrong configuration (policy, folders), 3 failure while running."},
    {"Default places",
     "policy /etc/tvk/policy.json, store /var/lib/tvk, logs /var/log/tvk; on Windows policy.json, data and log "
     "in %ProgramData%\\TVK."},
    {"Signals",
     "SIGTERM and Ctrl-C stop the service; SIGHUP makes it read the policy again, but with --console, once its "
     "terminal "
     "is gone, stops it."},
};

struct Texts {
  std::string policy, data_folder, log_folder, sysroot, run_for;
};

void AddRunOptions(CLI::App& app, ServiceOptions& options, Texts& texts) {
  app.add_option("--policy", texts.policy, "Telemetry policy; client-policy.json is looked for beside it")
      ->type_name("FILE");
  app.add_option("--data-dir", texts.data_folder, "Folder of the event store")->type_name("DIR");
  app.add_option("--log-dir", texts.log_folder, "Folder of the logs; DATA-DIR/log when only --data-dir is given")
      ->type_name("DIR");
  app.add_option("--sysroot", texts.sysroot, "Read the machine's files below this folder (Linux)")->type_name("DIR");
  app.add_flag("--console", options.console, "Run in this terminal and show the records as they are written");
  app.add_option("--for", texts.run_for, "End after this time: 90s, 5m, 2h")->type_name("DURATION");
}

/// The parser's description, and what a parse leaves.
class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  CLI::App app{kDescription, "TVKClientService"};
  ServiceOptions options;
  Texts texts;
};

CommandLine::CommandLine() {
  SetUpHelp(app, kSections);
  AddRunOptions(app, options, texts);
  const auto add_command = [&](const char* name, const char* help, ServiceCommand command) {
    app.add_subcommand(name, help)->callback([this, command] { options.command = command; });
  };
  add_command("install", "Enter the service into Windows' list of services, with the options given before it",
              ServiceCommand::kInstall);
  add_command("uninstall", "Stop the service and take it out of the list", ServiceCommand::kUninstall);
  add_command("start", "Start the installed service", ServiceCommand::kStart);
  add_command("stop", "Stop the running service", ServiceCommand::kStop);
  add_command("status", "Say how the installed service stands", ServiceCommand::kStatus);
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", "TVKClientService " TVK_VERSION);
  RefuseEmptyValues(app);
  ExplainFailures(app);
}

}  // namespace

std::string ServiceManualPage(const std::string& date) {
  return ManualPage(
      CommandLine().app,
      {.section = 8, .date = date, .version = TVK_VERSION, .see_also = "tvkctl(1)", .sections = kSections});
}

std::optional<ServiceOptions> ParseServiceOptions(std::vector<std::string> arguments, int& exit_code) {
  CommandLine line;
  std::ranges::reverse(arguments);  // as CLI11 takes them
  try {
    line.app.parse(std::move(arguments));
  } catch (const CLI::ParseError& failure) {
    exit_code = line.app.exit(failure) == 0 ? kExitOk : kExitWrongCommandLine;
    return std::nullopt;
  }
  ServiceOptions& options = line.options;
  const Texts& texts = line.texts;
  if (options.console && options.command == ServiceCommand::kInstall) {
    std::cerr << "TVKClientService: --console: an installed service has no terminal\n";
    exit_code = kExitWrongCommandLine;
    return std::nullopt;
  }
  options.component.policy_file = platform::PathFromUtf8(texts.policy);
  options.component.data_folder = platform::PathFromUtf8(texts.data_folder);
  options.component.log_folder = platform::PathFromUtf8(texts.log_folder);
  options.component.sysroot = platform::PathFromUtf8(texts.sysroot);
  if (!texts.run_for.empty()) {
    const std::uint64_t milliseconds = TVK::utility::GetIntervalInMillisecondsGivenRegex(
        TVK::String::UTF8ToUTF16(texts.run_for), L"^\\d+(ms|s|m|h|d)$");
    constexpr std::uint64_t kYear = 366ull * 24 * 3600 * 1000;
    if (milliseconds == 0 || milliseconds > kYear) {
      std::cerr << "TVKClientService: --for: \"" << texts.run_for << "\" is no duration such as 90s, 5m or 2h\n";
      exit_code = kExitWrongCommandLine;
      return std::nullopt;
    }
    options.run_for = std::chrono::milliseconds(milliseconds);
  }
  return options;
}

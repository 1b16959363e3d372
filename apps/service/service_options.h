// The command line of the service.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "apps/exit_code.h"
#include "tvk/component.h"

/// What the service is told to do.
enum class ServiceCommand { kRun, kInstall, kUninstall, kStart, kStop, kStatus };

struct ServiceOptions {
  ServiceCommand command = ServiceCommand::kRun;
  TVK::ComponentOptions component;
  bool console = false;                              ///< Run here and show the records.
  std::optional<std::chrono::milliseconds> run_for;  ///< End by itself after this time.
};

/// Reads the command line (UTF-8, without the program's name). Empty: the process ends now with `exit_code`; what there
/// was to say has been printed.
std::optional<ServiceOptions> ParseServiceOptions(std::vector<std::string> arguments, int& exit_code);

/// The manual page TVKClientService(8), dated `date` ("2026-01-31").
std::string ServiceManualPage(const std::string& date);

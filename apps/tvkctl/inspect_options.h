// The options of the commands that have many of their own.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "apps/tvkctl/eventlog_query.h"

namespace tvkctl {

/// Of `inspect smart`, as they stand on the command line, in UTF-8.
struct SmartTexts {
  std::string ata_values, ata_thresholds, ata_identify, nvme_health, table;
};

/// Each adds options to a command, that of AddSmartOptions having "--sysroot" already; what they fill must outlive it.
void AddSmartOptions(CLI::App& smart, SmartTexts& texts);
void AddEventLogOptions(CLI::App& query, EventLogOptions& options);

}  // namespace tvkctl

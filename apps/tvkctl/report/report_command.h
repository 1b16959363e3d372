// `tvkctl report`: what is known of this machine, for its owner.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

#include "apps/tvkctl/report/standing.h"
#include "client/report/report.h"
#include "platform/runtime.h"

namespace tvkctl {

struct ReportOptions {
  std::filesystem::path data_dir;      ///< Folder of the store.
  std::function<Standing()> standing;  ///< Asked once, when the store could be opened.
  /// Asks the service for both where this account may not read the store; see AskReport. Empty: nobody is asked.
  std::function<bool(std::optional<std::int64_t> since, TVK::Report& report, Standing& standing, std::string& problem)>
      ask_service = {};
  std::string since;                     ///< As ParseMoment (client/text/moment.h) takes it. Empty: from the begin.
  std::filesystem::path html_file = {};  ///< The page is written there instead; "-" is `out`. Empty: no page.
  std::size_t width = 80;                ///< Cells of a line.
  bool tells_progress = false;           ///< Of what takes more than two seconds, on `errors`.
};

/// Reads the store, or asks the service where this account may not. Writes some fifteen lines to `out`: what leaves the
/// machine, what is recorded, what is kept and for how long, how the machine is described, when nothing was recorded,
/// which datasets have how many records, how to stop it and how to delete it. Or writes all that is known as one page
/// for a browser. Returns the exit code: 0; 1 when
/// `since` is no time; 2 when there is no store; 3 when it cannot be read, or the page not be written: a file of its
/// name is then untouched.
int RunReport(const ReportOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors);

}  // namespace tvkctl

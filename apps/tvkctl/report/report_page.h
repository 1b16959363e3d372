// The report as one page for a browser.
#pragma once

#include <string>
#include <string_view>

#include "apps/tvkctl/report/report_sentences.h"

namespace tvkctl {

/// The page, HTML in UTF-8: all in one, without a script, and with a policy that lets a browser load nothing. Texts of
/// records are shown and mean nothing more. Its size is bounded, whatever the store holds.
std::string ReportPage(const TVK::Report& report, const Standing& standing, const ReportSentences& sentences);

/// The parts of the page that are drawings, each with its numbers as a table: timelines, and what happened when.
std::string TimelineSection(const TVK::Report& report, const ReportSentences& sentences);
std::string EventSection(const TVK::Report& report, const ReportSentences& sentences);

/// A table that is pushed aside where the screen is narrow; `name` is what a screen reader calls it.
std::string HtmlTable(const std::string& name, const std::vector<std::string>& head,
                      const std::vector<std::vector<std::string>>& rows);

}  // namespace tvkctl

namespace TVK {

/// The style of the page, CSS.
std::string_view ReportPageStyle();

}  // namespace TVK

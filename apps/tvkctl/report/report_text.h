// The report in a terminal.
#pragma once

#include <cstddef>
#include <string>

#include "apps/tvkctl/report/report_sentences.h"

namespace tvkctl {

/// Fifteen lines at most where they are 80 cells wide; in narrower ones as many as the texts need, with the dataset of
/// the most records alone. `width` in cells.
std::string ReportText(const TVK::Report& report, const ReportSentences& sentences, std::size_t width);

}  // namespace tvkctl

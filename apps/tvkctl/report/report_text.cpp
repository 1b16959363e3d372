#include "apps/tvkctl/report/report_text.h"

#include <algorithm>
#include <span>

#include "client/records/flowing_text.h"
#include "client/text/cells.h"
#include "client/text/string.h"

namespace tvkctl {
namespace {

constexpr std::ptrdiff_t kMostLines = 15;
constexpr std::size_t kMostGaps = 2;
constexpr std::size_t kLabelWidth = 18;
// The longest name of a dataset of ours; of what else stands in a store nobody knows the length.
constexpr std::size_t kMostLabelWidth = 24;

std::string Line(const Sentence& sentence, std::size_t width, std::size_t label_width = kLabelWidth) {
  TVK::FlowingText line(width);
  line.SetIndent(label_width + 2);
  line.AddColumn(sentence.label, label_width);
  line.AddWord(sentence.text);
  return line.Finish();
}

std::string Lines(const std::vector<Sentence>& sentences, std::size_t width) {
  std::string text;
  for (const Sentence& sentence : sentences)
    text += Line(sentence, width);
  return text;
}

std::ptrdiff_t CountLines(const std::string& text) {
  return std::ranges::count(text, '\n');
}

std::string GapLines(const TVK::Report& report, const ReportSentences& sentences, std::size_t width) {
  std::string text;
  const std::size_t shown = std::min(report.gaps.size(), kMostGaps);
  for (std::size_t i = 0; i < shown; ++i) {
    const bool more = i + 1 == shown && report.gaps.size() > shown;
    text += Line({"nothing recorded", sentences.GapText(report.gaps[i]) +
                                          (more ? "; " + std::to_string(report.gaps.size() - shown) + " more" : "")},
                 width);
  }
  return text;
}

// The first `shown` datasets, their columns below each other where the lines leave room for it, and a line for the
// rest.
std::string DatasetLines(const TVK::Report& report, const ReportSentences& sentences, std::size_t width,
                         std::size_t shown) {
  const std::span<const TVK::DatasetReport> datasets(report.datasets);
  std::size_t labels = kLabelWidth;
  for (const TVK::DatasetReport& dataset : datasets.first(shown))
    labels = std::max(labels, TVK::CellsOf(TVK::HarmlessText(ReportSentences::NameOf(dataset.name))));
  labels = std::min(labels, std::clamp(width / 3, kLabelWidth, kMostLabelWidth));
  std::string text;
  for (const TVK::DatasetReport& dataset : datasets.first(shown))
    text += Line({ReportSentences::NameOf(dataset.name), sentences.DatasetText(dataset)}, width, labels);
  std::uint64_t others = 0;
  for (const TVK::DatasetReport& dataset : datasets.subspan(shown))
    others += dataset.records;
  if (others == 0) return text;
  return text + Line({"others", ReportSentences::Number(others, "record") + " of " +
                                    ReportSentences::Number(datasets.size() - shown, "dataset")},
                     width, labels);
}

// As many datasets as there is room for, one at least.
std::string DatasetLinesInRoom(const TVK::Report& report, const ReportSentences& sentences, std::size_t width,
                               std::ptrdiff_t room) {
  // Each takes a line.
  std::size_t shown = std::min(report.datasets.size(), static_cast<std::size_t>(std::max<std::ptrdiff_t>(room, 1)));
  std::string text = DatasetLines(report, sentences, width, shown);
  while (shown > 1 && CountLines(text) > room)
    text = DatasetLines(report, sentences, width, --shown);
  return text;
}

}  // namespace

std::string ReportText(const TVK::Report& report, const ReportSentences& sentences, std::size_t width) {
  const std::string head = Lines(sentences.Summary(), width) + GapLines(report, sentences, width);
  const std::string tail = Lines(sentences.Remedies(), width);
  return head + DatasetLinesInRoom(report, sentences, width, kMostLines - CountLines(head) - CountLines(tail)) + tail;
}

}  // namespace tvkctl

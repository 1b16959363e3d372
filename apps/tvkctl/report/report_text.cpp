#include "apps/tvkctl/report/report_text.h"

#include <algorithm>
#include <span>

#include "client/records/flowing_text.h"

namespace tvkctl {
namespace {

constexpr std::ptrdiff_t kMostLines = 15;
constexpr std::size_t kMostGaps = 2;
constexpr std::size_t kLabelWidth = 18;

std::string Line(const Sentence& sentence, std::size_t width) {
  TVK::FlowingText line(width);
  line.SetIndent(kLabelWidth + 2);
  line.AddColumn(sentence.label, kLabelWidth);
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

// As many datasets as there is room for, and a line for the others.
std::string DatasetLines(const TVK::Report& report, const ReportSentences& sentences, std::size_t width,
                         std::ptrdiff_t room) {
  std::string text;
  std::size_t shown = 0;
  for (; shown < report.datasets.size(); ++shown) {
    const TVK::DatasetReport& dataset = report.datasets[shown];
    const std::string line = Line({ReportSentences::NameOf(dataset.name), sentences.DatasetText(dataset)}, width);
    const std::ptrdiff_t others = shown + 1 < report.datasets.size() ? 1 : 0;
    if (shown > 0 && CountLines(text) + CountLines(line) + others > room) break;
    text += line;
  }
  std::uint64_t others = 0;
  for (const TVK::DatasetReport& dataset : std::span(report.datasets).subspan(shown))
    others += dataset.records;
  if (others == 0) return text;
  return text + Line({"others", ReportSentences::Number(others, "record") + " of " +
                                    ReportSentences::Number(report.datasets.size() - shown, "dataset")},
                     width);
}

}  // namespace

std::string ReportText(const TVK::Report& report, const ReportSentences& sentences, std::size_t width) {
  const std::string head = Lines(sentences.Summary(), width) + GapLines(report, sentences, width);
  const std::string tail = Lines(sentences.Remedies(), width);
  return head + DatasetLines(report, sentences, width, kMostLines - CountLines(head) - CountLines(tail)) + tail;
}

}  // namespace tvkctl

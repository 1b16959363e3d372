#include "apps/tvkctl/report/report_page.h"

#include <algorithm>
#include <set>

#include "apps/tvkctl/report/html.h"
#include "client/records/list_lines.h"

namespace tvkctl {
namespace {

using Rows = std::vector<std::vector<std::string>>;

constexpr std::size_t kMostGaps = 50;

std::string Section(const std::string& title, const std::string& content) {
  return "<section>" + HtmlElement("h2", title) + content + "</section>\n";
}

std::string Details(const std::string& summary, const std::string& content) {
  return "<details>" + HtmlElement("summary", summary) + content + "</details>\n";
}

std::string List(const std::vector<Sentence>& sentences) {
  std::string html = "<dl>";
  for (const Sentence& sentence : sentences)
    html += HtmlElement("dt", sentence.label) + HtmlElement("dd", sentence.text);
  return html + "</dl>";
}

// A list in a value has a line for each of its elements.
std::string Value(const std::string& value) {
  const auto lines = TVK::ListLines(value);
  if (!lines) return HtmlText(value);
  std::string html = "<ul>";
  for (const std::string& line : *lines)
    html += HtmlElement("li", line);
  return html + "</ul>";
}

// What the records of the machine itself are called among the datasets.
constexpr char kMachineDataset[] = "DeviceContext";

std::string DatasetSection(const TVK::Report& report, const Standing& standing, const ReportSentences& sentences) {
  Rows rows;
  std::set<std::string> told;
  for (const DatasetStanding& dataset : standing.datasets) {
    const std::string name = dataset.name == kMachineDataset ? std::string() : dataset.name;
    const auto found = std::ranges::find(report.datasets, name, &TVK::DatasetReport::name);
    const bool recorded = found != report.datasets.end();
    rows.push_back({dataset.name, dataset.state, dataset.why, recorded ? sentences.DatasetText(*found) : "no record"});
    told.insert(name);
  }
  for (const TVK::DatasetReport& dataset : report.datasets) {
    if (told.contains(dataset.name)) continue;
    rows.push_back({ReportSentences::NameOf(dataset.name), "", "", sentences.DatasetText(dataset)});
  }
  std::vector<std::string> head = {"Dataset", "State", "Why", "Records"};
  if (standing.datasets.empty()) {  // two columns of nothing
    head.erase(head.begin() + 1, head.begin() + 3);
    for (std::vector<std::string>& row : rows)
      row.erase(row.begin() + 1, row.begin() + 3);
  }
  std::string html;
  if (!standing.answered) {
    html += HtmlElement("p class=\"note\"", "The service did not tell how it stands (" + standing.no_answer +
                                                "). What is to run is said by its policy file.");
  }
  return Section("What is recorded", html + HtmlTable("Datasets", head, rows));
}

std::string GapSection(const TVK::Report& report, const ReportSentences& sentences) {
  std::string html;
  for (std::size_t i = 0; i < std::min(report.gaps.size(), kMostGaps); ++i)
    html += HtmlElement("li", sentences.GapText(report.gaps[i]));
  html = html.empty() ? "<p>Never for an hour or longer in the time of this report.</p>" : "<ul>" + html + "</ul>";
  if (report.gaps.size() > kMostGaps) {
    html += HtmlElement("p", std::to_string(report.gaps.size() - kMostGaps) + " more, shorter ones.");
  }
  Rows rows;
  std::size_t left_out = 0;
  for (const TVK::DatasetReport& dataset : report.datasets) {
    for (const TVK::Gap& gap : dataset.gaps) {
      if (rows.size() < kMostGaps) {
        rows.push_back({dataset.name, sentences.SpanText(gap)});
      } else {
        ++left_out;
      }
    }
  }
  if (!rows.empty()) {
    html += "<h3>Of one dataset, while others were recorded</h3>" +
            HtmlTable("Gaps of single datasets", {"Dataset", "Silent"}, rows);
    if (left_out > 0) html += HtmlElement("p", std::to_string(left_out) + " more are not shown.");
  }
  return Section("When nothing was recorded", html);
}

std::string Described(const TVK::Description& description, const ReportSentences& sentences) {
  std::string html = "<dl>";
  for (const auto& [key, value] : description.facts)
    html += HtmlElement("dt", key) + "<dd>" + Value(value) + "</dd>";
  html += "</dl>";
  html += HtmlElement("p", "Written " + ReportSentences::Number(description.written, "time") + ", from " +
                               sentences.Time(description.first_seconds) + " to " +
                               sentences.Time(description.newest_seconds) + '.');
  if (description.changes_left_out > 0) {
    html += HtmlElement("p", ReportSentences::Number(description.changes_left_out, "older change") + " not shown.");
  }
  Rows rows;
  for (const TVK::Change& change : description.changes) {
    for (const TVK::FactChange& fact : change.facts)
      rows.push_back({sentences.Time(change.seconds), fact.key, fact.before, fact.after});
  }
  if (!rows.empty()) html += HtmlTable("Changes", {"When", "Fact", "Was", "Is"}, rows);
  return html;
}

// What tells a device from others of its dataset, as people would.
std::string NameOf(const TVK::Description& description) {
  for (const char* const key : {"Model", "VolumeRole", "Id", "cpu_name"}) {
    const auto found = std::ranges::find(description.facts, key, &std::pair<std::string, std::string>::first);
    if (found != description.facts.end()) return ": " + found->second;
  }
  return {};
}

std::string DescriptionSection(const TVK::Report& report, const ReportSentences& sentences) {
  std::string html;
  for (const TVK::Description& description : report.descriptions) {
    const std::size_t changes = description.changes.size() + description.changes_left_out;
    html += Details(ReportSentences::NameOf(description.dataset) + NameOf(description) + " (" +
                        (changes == 0 ? "unchanged" : ReportSentences::Number(changes, "change")) + ')',
                    Described(description, sentences));
  }
  if (report.left_out > 0) {
    html += HtmlElement("p class=\"note\"", ReportSentences::Number(report.left_out, "device or kind of event") +
                                                " left out: there are too many for one page.");
  }
  return html.empty() ? html : Section("How the machine and its devices are described", html);
}

}  // namespace

std::string HtmlTable(const std::string& name, const std::vector<std::string>& head, const Rows& rows) {
  std::string html =
      "<div class=\"wide\" role=\"region\" tabindex=\"0\" aria-label=\"" + HtmlText(name) + "\"><table><thead><tr>";
  for (const std::string& cell : head)
    html += HtmlElement("th scope=\"col\"", cell);
  html += "</tr></thead><tbody>";
  for (const std::vector<std::string>& row : rows) {
    html += "<tr>" + HtmlElement("th scope=\"row\"", row.front());
    for (std::size_t i = 1; i < row.size(); ++i)
      html += HtmlElement("td", row[i]);
    html += "</tr>\n";
  }
  return html + "</tbody></table></div>";
}

std::string ReportPage(const TVK::Report& report, const Standing& standing, const ReportSentences& sentences) {
  const std::string span = sentences.Time(report.axis.begin) + " to " + sentences.Time(report.axis.end);
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
      "img-src data:; base-uri 'none'; form-action 'none'\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
      "<link rel=\"icon\" href=\"data:,\">\n<title>What this PC keeps of itself</title>\n<style>\n";
  html += TVK::ReportPageStyle();
  html += "</style>\n</head>\n<body>\n<main>\n<header><h1>What this PC keeps of itself</h1>" +
          HtmlElement("p", span + ", local time") + "</header>\n";
  html += Section("In short", List(sentences.Summary()));
  html += Section("To stop it, to delete it", List(sentences.Remedies()));
  html += DatasetSection(report, standing, sentences);
  html += TimelineSection(report, sentences);
  html += EventSection(report, sentences);
  html += GapSection(report, sentences);
  html += DescriptionSection(report, sentences);
  html +=
      "<footer><p>Made by tvkctl report. This page holds all that it shows, and asks nothing of any network.</p>"
      "</footer>\n</main>\n</body>\n</html>\n";
  return html;
}

}  // namespace tvkctl

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "apps/tvkctl/report/html.h"
#include "apps/tvkctl/report/report_page.h"
#include "apps/tvkctl/report/svg_chart.h"

namespace tvkctl {
namespace {

// So many rows are read, and still follow the curve.
constexpr std::size_t kTableRows = 24;
constexpr std::size_t kMostEvents = 24;

struct MeasureText {
  TVK::Measure measure;
  const char* title;
  const char* unit;
};
constexpr MeasureText kMeasures[] = {
    {TVK::Measure::kProcessorUse, "Processor use", "%"},
    {TVK::Measure::kMemoryUse, "Memory in use", "%"},
    {TVK::Measure::kBatteryCharge, "Battery charge", "%"},
    {TVK::Measure::kBatteryHealth, "Battery capacity, of what it was when new", "%"},
    {TVK::Measure::kDriveTemperature, "Drive temperature", "\u00B0C"},
    {TVK::Measure::kDriveWear, "Drive wear, of the life that its maker expects", "%"},
    {TVK::Measure::kVolumeUse, "Volumes: space that is taken", "%"},
};

std::string Rounded(double value) {
  const double tenths = std::round(value * 10);
  std::string text = std::to_string(static_cast<long long>(std::trunc(tenths / 10)));
  const int rest = static_cast<int>(std::fabs(std::fmod(tenths, 10)));
  if (rest != 0) text += '.' + std::to_string(rest);
  return tenths < 0 && tenths > -10 ? '-' + text : text;
}

TVK::Extremes All(const TVK::Curve& curve) {
  TVK::Extremes all;
  for (const TVK::Extremes& bucket : curve.buckets)
    all.Add(bucket);
  return all;
}

// Shares from 0 to 100, also where one passes it; temperatures in whole tens around what there is.
ChartRange RangeOf(const TVK::Timeline& timeline) {
  TVK::Extremes all;
  for (const TVK::Curve& curve : timeline.curves)
    all.Add(All(curve));
  if (timeline.measure != TVK::Measure::kDriveTemperature) return {0, std::max(100.0, std::ceil(all.most / 10) * 10)};
  return {std::floor(all.least / 10) * 10, std::floor(all.most / 10) * 10 + 10};
}

std::string Words(const TVK::Extremes& all, const std::string& unit) {
  if (all.least == all.most) return Rounded(all.most) + ' ' + unit;
  return Rounded(all.least) + " to " + Rounded(all.most) + ' ' + unit + ", " + Rounded(all.mean()) + ' ' + unit +
         " on average";
}

std::string CurveTable(const TVK::Report& report, const TVK::Timeline& timeline, const MeasureText& text,
                       const ReportSentences& sentences) {
  std::vector<std::string> head = {"From"};
  for (const TVK::Curve& curve : timeline.curves) {
    const std::string of = curve.of.empty() ? std::string() : curve.of + ": ";
    for (const char* const what : {"least", "average", "most"})
      head.push_back(of + what + ", " + text.unit);
  }
  std::vector<std::vector<std::string>> rows;
  constexpr std::size_t kStep = TVK::TimeAxis::kBuckets / kTableRows;
  for (std::size_t begin = 0; begin < TVK::TimeAxis::kBuckets; begin += kStep) {
    std::vector<std::string> row = {sentences.Time(report.axis.BeginOf(begin))};
    bool any = false;
    for (const TVK::Curve& curve : timeline.curves) {
      TVK::Extremes values;
      for (const TVK::Extremes& bucket : std::span(curve.buckets).subspan(begin, kStep))
        values.Add(bucket);
      const bool some = values.count > 0;
      any = any || some;
      for (const double value : {values.least, some ? values.mean() : 0, values.most})
        row.push_back(some ? Rounded(value) : "");
    }
    if (any) rows.push_back(std::move(row));
  }
  return "<details>" + HtmlElement("summary", std::string(text.title) + " as a table") +
         HtmlTable(text.title, head, rows) + "</details>";
}

std::string TimeLabels(const TVK::TimeAxis& axis, const ReportSentences& sentences) {
  return "<div class=\"times\" aria-hidden=\"true\">" + HtmlElement("span", sentences.Time(axis.begin)) +
         HtmlElement("span", sentences.Time(axis.end)) + "</div>";
}

std::string Figure(const TVK::Report& report, const TVK::Timeline& timeline, const MeasureText& text,
                   const ReportSentences& sentences) {
  const ChartRange range = RangeOf(timeline);
  std::string legend;
  std::string spoken = text.title;
  for (std::size_t i = 0; i < timeline.curves.size(); ++i) {
    const TVK::Curve& curve = timeline.curves[i];
    const std::string words = (curve.of.empty() ? std::string() : curve.of + ": ") + Words(All(curve), text.unit);
    legend += "<li><span class=\"key c" + std::to_string(i) + "\"></span>" + HtmlText(words) + "</li>";
    spoken += (i == 0 ? ": " : "; ") + words;
  }
  const std::string unit = std::string(" ") + text.unit;
  return "<figure><figcaption>" + HtmlElement("h3", text.title) + "</figcaption><div class=\"chart\">" +
         "<div class=\"values\" aria-hidden=\"true\">" + HtmlElement("span", Rounded(range.high) + unit) +
         HtmlElement("span", Rounded((range.low + range.high) / 2)) + HtmlElement("span", Rounded(range.low)) +
         "</div>" + CurvesSvg(timeline, report.gaps, report.axis, range, spoken) + TimeLabels(report.axis, sentences) +
         "</div><ul class=\"legend\">" + legend + "</ul>" + CurveTable(report, timeline, text, sentences) +
         "</figure>\n";
}

struct EventRow {
  const TVK::DatasetReport* dataset;
  const TVK::ItemReport* item;
};

// How many in each stretch in which there were any.
std::string EventTable(const TVK::Report& report, const std::vector<EventRow>& events,
                       const ReportSentences& sentences) {
  constexpr std::size_t kStep = TVK::TimeAxis::kBuckets / kTableRows;
  std::vector<std::string> head = {"From"};
  for (const EventRow& event : events)
    head.push_back(event.item->name);
  std::vector<std::vector<std::string>> rows;
  for (std::size_t begin = 0; begin < TVK::TimeAxis::kBuckets; begin += kStep) {
    std::vector<std::string> row = {sentences.Time(report.axis.BeginOf(begin))};
    std::uint64_t all = 0;
    for (const EventRow& event : events) {
      std::uint64_t count = 0;
      for (const std::uint32_t bucket : std::span(event.item->buckets).subspan(begin, kStep))
        count += bucket;
      row.push_back(std::to_string(count));
      all += count;
    }
    if (all > 0) rows.push_back(std::move(row));
  }
  return "<details><summary>Events as a table</summary>" + HtmlTable("Events", head, rows) + "</details>";
}

}  // namespace

std::string TimelineSection(const TVK::Report& report, const ReportSentences& sentences) {
  std::string html;
  for (const TVK::Timeline& timeline : report.timelines) {
    const auto text = std::ranges::find(kMeasures, timeline.measure, &MeasureText::measure);
    html += Figure(report, timeline, *text, sentences);
  }
  if (html.empty()) return html;
  return "<section><h2>How it went</h2><p class=\"note\">A line is the average, the band around it reaches from the "
         "least to the most. Nothing at all was recorded where it is shaded.</p>" +
         html + "</section>\n";
}

std::string EventSection(const TVK::Report& report, const ReportSentences& sentences) {
  std::vector<EventRow> events;
  std::size_t left_out = 0;
  for (const TVK::DatasetReport& dataset : report.datasets) {
    for (const TVK::ItemReport& item : dataset.items) {
      if (item.regular) continue;
      if (events.size() < kMostEvents) {
        events.push_back({&dataset, &item});
      } else {
        ++left_out;
      }
    }
  }
  if (events.empty()) return {};
  std::string html = "<section><h2>What happened when</h2><div class=\"events\">";
  for (const EventRow& event : events) {
    const std::string words =
        event.dataset->name + ", " + event.item->name + ": " + ReportSentences::Number(event.item->records, "record");
    html += "<div class=\"event\">" + HtmlElement("p", words) + BarsSvg(event.item->buckets, words) + "</div>";
  }
  html += TimeLabels(report.axis, sentences) + "</div>" + EventTable(report, events, sentences);
  if (left_out > 0) html += HtmlElement("p", std::to_string(left_out) + " more kinds of events are not shown.");
  return html + "</section>\n";
}

}  // namespace tvkctl

#include "apps/tvkctl/report/svg_chart.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "apps/tvkctl/report/html.h"

namespace tvkctl {
namespace {

constexpr double kHeight = 100;
constexpr double kBarsHeight = 24;
// A stretch without a value that is as long as this many usual ones is no part of the curve.
constexpr std::size_t kLongStretch = 3;
// Of fewer values each one is a dot.
constexpr std::size_t kFewValues = 60;

// One decimal, whatever the locale of the process.
std::string Coordinate(double value) {
  std::array<char, 32> text{};
  const long tenths = static_cast<long>(value * 10 + 0.5);
  const int length = std::snprintf(text.data(), text.size(), "%ld.%ld", tenths / 10, tenths % 10);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string Begin(double height, std::string_view css_class, std::string_view title) {
  return "<svg class=\"" + std::string(css_class) + "\" viewBox=\"0 0 " + std::to_string(TVK::TimeAxis::kBuckets) +
         ' ' + Coordinate(height) + "\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" + HtmlText(title) +
         "\">";
}

class CurvePath {
 public:
  CurvePath(const TVK::Curve& curve, const ChartRange& range) : curve_(curve), range_(range) {
    for (std::size_t bucket = 0; bucket < curve.buckets.size(); ++bucket) {
      if (curve.buckets[bucket].count > 0) filled_.push_back(bucket);
    }
  }

  std::string Draw(std::size_t number) const {
    std::string line, band, dots;
    for (std::size_t begin = 0; begin < filled_.size();) {
      std::size_t end = begin + 1;
      while (end < filled_.size() && filled_[end] - filled_[end - 1] <= Longest())
        ++end;
      AppendStretch(begin, end, line, band);
      begin = end;
    }
    for (const std::size_t bucket : filled_) {
      if (filled_.size() < kFewValues) dots += 'M' + Point(bucket, curve_.buckets[bucket].mean()) + "h0";
    }
    const std::string color = " c" + std::to_string(number);
    std::string svg =
        "<path class=\"band" + color + "\" d=\"" + band + "\"/><path class=\"line" + color + "\" d=\"" + line + "\"/>";
    if (!dots.empty()) svg += "<path class=\"dots" + color + "\" d=\"" + dots + "\"/>";
    return svg;
  }

 private:
  std::size_t Longest() const {
    std::vector<std::size_t> steps;
    for (std::size_t i = 1; i < filled_.size(); ++i)
      steps.push_back(filled_[i] - filled_[i - 1]);
    if (steps.empty()) return 0;
    std::ranges::nth_element(steps, steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2));
    return steps[steps.size() / 2] * kLongStretch;
  }

  void AppendStretch(std::size_t begin, std::size_t end, std::string& line, std::string& band) const {
    std::string back;
    for (std::size_t i = begin; i < end; ++i) {
      const TVK::Extremes& values = curve_.buckets[filled_[i]];
      line += (i == begin ? 'M' : 'L') + Point(filled_[i], values.mean());
      band += (i == begin ? 'M' : 'L') + Point(filled_[i], values.most);
      back = 'L' + Point(filled_[i], values.least) + back;
    }
    if (end == begin + 1) line += "h0";
    band += back + 'Z';
  }

  std::string Point(std::size_t bucket, double value) const {
    const double part = std::clamp((value - range_.low) / (range_.high - range_.low), 0.0, 1.0);
    return Coordinate(static_cast<double>(bucket) + 0.5) + ' ' + Coordinate(kHeight * (1 - part));
  }

  const TVK::Curve& curve_;
  const ChartRange& range_;
  std::vector<std::size_t> filled_;  ///< Buckets with values.
};

}  // namespace

std::string CurvesSvg(const TVK::Timeline& timeline, const std::vector<TVK::Gap>& gaps, const TVK::TimeAxis& axis,
                      const ChartRange& range, std::string_view title) {
  std::string svg = Begin(kHeight, "curves", title);
  for (const TVK::Gap& gap : gaps) {
    const double width = static_cast<double>(std::max<std::int64_t>(axis.end - axis.begin, 1));
    const auto place = [&](std::int64_t seconds) {
      const std::int64_t inside = std::clamp(seconds, axis.begin, axis.end) - axis.begin;
      return static_cast<double>(TVK::TimeAxis::kBuckets) * static_cast<double>(inside) / width;
    };
    svg += "<rect class=\"gap\" x=\"" + Coordinate(place(gap.begin)) + "\" y=\"0\" width=\"" +
           Coordinate(place(gap.end) - place(gap.begin)) + "\" height=\"100\"/>";
  }
  svg += "<path class=\"grid\" d=\"M0 50H240\"/>";
  for (std::size_t i = 0; i < timeline.curves.size(); ++i)
    svg += CurvePath(timeline.curves[i], range).Draw(i);
  return svg + "</svg>";
}

std::string BarsSvg(const TVK::BucketCounts& counts, std::string_view title) {
  const std::uint32_t most = std::max(*std::ranges::max_element(counts), 1u);
  std::string path;
  for (std::size_t bucket = 0; bucket < counts.size(); ++bucket) {
    if (counts[bucket] == 0) continue;
    // One among many is seen, too.
    const double height = std::max(kBarsHeight * counts[bucket] / most, 2.0);
    path += 'M' + Coordinate(static_cast<double>(bucket)) + ' ' + Coordinate(kBarsHeight) + 'V' +
            Coordinate(kBarsHeight - height) + "h1V" + Coordinate(kBarsHeight) + 'Z';
  }
  return Begin(kBarsHeight, "bars", title) + "<path class=\"bar\" d=\"" + path + "\"/></svg>";
}

}  // namespace tvkctl

// Drawings of a report: shapes alone. Their words stand around them, where they keep their size on a narrow screen.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/report/report.h"

namespace tvkctl {

/// The values that the upper and the lower edge of a chart stand for.
struct ChartRange {
  double low = 0;
  double high = 100;
};

/// A curve for each device, the mean of each bucket in a band from its least to its most; gaps shaded. `title` is what
/// a screen reader says of it, as text. A curve is broken where it has no value for much longer than usual.
std::string CurvesSvg(const TVK::Timeline& timeline, const std::vector<TVK::Gap>& gaps, const TVK::TimeAxis& axis,
                      const ChartRange& range, std::string_view title);

/// A bar for each bucket, the highest one as high as the drawing.
std::string BarsSvg(const TVK::BucketCounts& counts, std::string_view title);

}  // namespace tvkctl

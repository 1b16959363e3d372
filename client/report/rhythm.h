// When something that is written in an interval was not.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/report/report.h"

namespace TVK {

/// Learns the interval of one item of a dataset from its records, and finds the silences that break it. Keeps the
/// longest of them alone, whatever the number of records. One thread at a time.
class Rhythm {
 public:
  /// A record, in the order of writing; one that a wrong clock dates before the last one moves nothing.
  void Add(std::int64_t seconds);

  /// The silences of an hour and more, longer than two and a half times the usual interval, up to `now`, longest
  /// first. `others`: times in which nothing at all was recorded, in any order; a silence counts by what lies outside
  /// of them. None where fewer than three intervals tell what is usual.
  std::vector<Gap> Gaps(const std::vector<Gap>& others, std::int64_t now) const;

 private:
  void Keep(const Gap& silence);
  /// In seconds; 0: not known.
  std::int64_t Usual() const;

  static constexpr std::size_t kSteps = 96;  ///< Four for each doubling, from 30 seconds on.
  std::array<std::uint32_t, kSteps> intervals_{};
  std::vector<Gap> silences_;
  std::int64_t last_ = 0;
};

}  // namespace TVK

#include "client/report/rhythm.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace TVK {
namespace {

constexpr std::int64_t kShortestSilence = 3600;
// Records of several devices, and of a start, follow each other at once: they are one beat.
constexpr std::int64_t kShortestInterval = 30;
constexpr std::size_t kMostSilences = 64;
constexpr double kStepsOfDoubling = 4;

std::int64_t Overlap(const Gap& a, const Gap& b) {
  return std::max<std::int64_t>(std::min(a.end, b.end) - std::max(a.begin, b.begin), 0);
}

}  // namespace

void Rhythm::Add(std::int64_t seconds) {
  if (last_ != 0 && seconds - last_ >= kShortestInterval) {
    const double step = kStepsOfDoubling * std::log2(static_cast<double>(seconds - last_) / kShortestInterval);
    ++intervals_[std::min(static_cast<std::size_t>(step), kSteps - 1)];
    if (seconds - last_ >= kShortestSilence) Keep({last_, seconds, GapEnd::kServiceRan});
  }
  last_ = std::max(last_, seconds);
}

void Rhythm::Keep(const Gap& silence) {
  if (silences_.size() < kMostSilences) {
    silences_.push_back(silence);
    return;
  }
  const auto shortest = std::ranges::min_element(silences_, {}, &Gap::length);
  if (shortest->length() < silence.length()) *shortest = silence;
}

std::int64_t Rhythm::Usual() const {
  const std::uint64_t all = std::accumulate(intervals_.begin(), intervals_.end(), std::uint64_t{0});
  if (all < 3) return 0;
  std::uint64_t below = 0;
  std::size_t step = 0;
  while ((below += intervals_[step]) * 2 < all)
    ++step;
  return static_cast<std::int64_t>(kShortestInterval * std::exp2(static_cast<double>(step + 1) / kStepsOfDoubling));
}

std::vector<Gap> Rhythm::Gaps(const std::vector<Gap>& others, std::int64_t now) const {
  const std::int64_t usual = Usual();
  std::vector<Gap> gaps;
  if (usual == 0) return gaps;
  const std::int64_t longest = std::max(kShortestSilence, usual * 5 / 2);
  std::vector<Gap> silences = silences_;
  silences.push_back({last_, now, GapEnd::kOpen});
  for (const Gap& silence : silences) {
    std::int64_t alone = silence.length();
    for (const Gap& other : others)
      alone -= Overlap(silence, other);
    if (alone >= longest) gaps.push_back(silence);
  }
  std::ranges::stable_sort(gaps, std::ranges::greater(), &Gap::length);
  return gaps;
}

}  // namespace TVK

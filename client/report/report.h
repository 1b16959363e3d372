// What is known of a machine, computed once from its store. Whoever tells the owner of it (a terminal, a page) tells
// this. Plain values; moments are seconds since 1970, texts UTF-8 as the records have them: whoever shows one makes it
// harmless first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tvk/records.h"

namespace TVK {

/// What the records say of the end of a time without any.
enum class GapEnd {
  kServiceRan,    ///< No monitor was started then: the machine slept, or nothing was due.
  kServiceStart,  ///< Monitors were started: there was no service, or no consent.
  kMachineStart,  ///< So was the machine: it was off.
  kOpen,          ///< None came since.
  kDeleted,       ///< Records of that time are deleted: nobody knows whether there was a gap.
};

/// A time without a record.
struct Gap {
  std::int64_t begin = 0;
  std::int64_t end = 0;
  GapEnd ended = GapEnd::kServiceRan;

  std::int64_t length() const { return end - begin; }
};

/// The time of a report in buckets of equal length, of which its curves and counts are made.
struct TimeAxis {
  static constexpr std::size_t kBuckets = 240;

  std::int64_t begin = 0;
  std::int64_t end = 0;  ///< Not before the begin.

  /// Moments outside belong to the first and the last bucket.
  std::size_t BucketOf(std::int64_t seconds) const {
    if (seconds <= begin) return 0;
    const double part =
        static_cast<double>(seconds - begin) / static_cast<double>(std::max<std::int64_t>(end - begin, 1));
    return std::min(static_cast<std::size_t>(part * kBuckets), kBuckets - 1);
  }
  /// Where the bucket begins.
  std::int64_t BeginOf(std::size_t bucket) const {
    return begin + (end - begin) * static_cast<std::int64_t>(bucket) / static_cast<std::int64_t>(kBuckets);
  }
};

/// Of the values of a bucket.
struct Extremes {
  double least = 0;
  double most = 0;
  double sum = 0;
  std::uint64_t count = 0;

  void Add(const Extremes& other) {
    if (other.count == 0) return;
    least = count == 0 ? other.least : std::min(least, other.least);
    most = count == 0 ? other.most : std::max(most, other.most);
    sum += other.sum;
    count += other.count;
  }
  void Add(double value) { Add({value, value, value, 1}); }
  /// Not of an empty one.
  double mean() const { return sum / static_cast<double>(count); }
};

/// What a timeline is of; its unit behind it.
enum class Measure {
  kProcessorUse,      ///< Percent.
  kMemoryUse,         ///< Percent.
  kBatteryCharge,     ///< Percent.
  kBatteryHealth,     ///< Full capacity, percent of that when it was new.
  kDriveTemperature,  ///< Degrees Celsius.
  kDriveWear,         ///< Percent of the life that its maker expects; may pass 100.
  kVolumeUse,         ///< Percent.
};

/// Beyond it, on both sides of zero, nothing is a value.
inline constexpr double kLargestValue = 1e9;

/// One device's.
struct Curve {
  std::string of;                 ///< Empty where the machine has one.
  std::vector<Extremes> buckets;  ///< TimeAxis::kBuckets
};

struct Timeline {
  Measure measure = Measure::kProcessorUse;
  std::vector<Curve> curves;
};

using BucketCounts = std::vector<std::uint32_t>;  ///< TimeAxis::kBuckets

struct ItemReport {
  std::string name;
  std::uint64_t records = 0;
  bool regular = false;  ///< Written in an interval, rather than when something happens.
  BucketCounts buckets;
};

struct DatasetReport {
  std::string name;  ///< Empty: the records of the machine itself, or unreadable ones.
  std::uint64_t records = 0;
  std::int64_t newest_seconds = 0;
  std::vector<ItemReport> items;
  std::vector<Gap> gaps;  ///< In which this dataset alone was silent against its own rhythm; longest first.
};

/// One fact that is another one now; an empty text: it was not, or is no longer told.
struct FactChange {
  std::string key, before, after;
};

struct Change {
  std::int64_t seconds = 0;
  std::vector<FactChange> facts;
};

/// What is kept as a context: the machine, or a device that a dataset describes.
struct Description {
  std::string dataset;                                     ///< Empty: the machine itself.
  std::vector<std::pair<std::string, std::string>> facts;  ///< Of the newest one.
  std::int64_t first_seconds = 0;
  std::int64_t newest_seconds = 0;
  std::uint64_t written = 0;
  std::vector<Change> changes;  ///< The newest ones, oldest first.
  std::size_t changes_left_out = 0;
};

struct Report {
  TimeAxis axis;
  bool since_begin = true;  ///< False: records before the begin of the axis are in the store, and left out.
  std::uint64_t records = 0;
  std::int64_t oldest_seconds = 0;
  std::int64_t newest_seconds = 0;
  std::uint64_t store_bytes = 0;
  std::optional<DeviceContext> device;  ///< The newest one.
  std::vector<DatasetReport> datasets;  ///< Most records first.
  std::vector<Gap> gaps;                ///< Of an hour and more without any record, longest first.
  std::vector<Timeline> timelines;      ///< Those of which there are values, in the order of Measure.
  std::vector<Description> descriptions;
  std::size_t left_out = 0;  ///< Devices and items for which there was no room.
};

}  // namespace TVK

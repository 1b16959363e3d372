// Which values of which records make the timelines of a report.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "client/report/report.h"
#include "tvk/records.h"

namespace TVK {

/// Takes contexts and items in the order of writing, and thins the values out as they come: what it keeps does not grow
/// with the number of items. One thread at a time.
class Measures {
 public:
  explicit Measures(const TimeAxis& axis) : axis_(axis) {}

  /// Whether items of the dataset have values, so that it is worth while to read them.
  static bool Wants(const std::string& dataset);

  /// Items that name the context are of its device.
  void AddContext(const DatasetContext& context);
  void AddItem(const ItemEvent& item, std::int64_t seconds);

  /// Those that have values, and how many devices there was no room for.
  std::vector<Timeline> Take(std::size_t& left_out);

 private:
  struct Device {
    std::string key;   ///< Tells it from the others, over restarts.
    std::string name;  ///< For people.
    double capacity_when_new = 0;
  };

  void Add(Measure measure, const Device& device, std::int64_t seconds, double value);

  const TimeAxis axis_;
  std::map<std::wstring, Device> devices_;  ///< By the id of the context; a bounded number.
  struct Line {
    std::string name;
    std::vector<Extremes> buckets;
  };
  std::map<Measure, std::map<std::string, Line>> lines_;   ///< By the device's key.
  std::map<Measure, std::set<std::string>> without_room_;  ///< Keys of devices.
  std::set<std::string> unknown_devices_;                  ///< Keys of those with a context for which was no room.
};

}  // namespace TVK

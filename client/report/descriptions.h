// What contexts describe, and how it changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "client/report/report.h"
#include "tvk/records.h"

namespace TVK {

/// Takes the contexts in the order of writing; keeps of each device the newest facts and a bounded number of changes.
/// Long texts are cut. One thread at a time.
class Descriptions {
 public:
  /// `series` tells the devices of all datasets from each other, as the store does. Changes before `since` are not
  /// kept. True when it says what the one before it said: its dataset was started.
  bool Add(std::int64_t series, const DatasetContext& context, std::int64_t seconds, std::int64_t since);
  /// Of the machine.
  void Add(const DeviceContext& context, std::int64_t seconds, std::int64_t since);

  /// The machine first, then by dataset and time; `left_out` counts devices for which there was no room.
  std::vector<Description> Take(std::size_t& left_out);

 private:
  using Facts = std::vector<std::pair<std::string, std::string>>;

  bool Add(std::pair<std::string, std::int64_t> key, Facts facts, std::int64_t seconds, std::int64_t since);

  std::map<std::pair<std::string, std::int64_t>, Description> descriptions_;  ///< By dataset and series.
  std::size_t left_out_ = 0;
};

}  // namespace TVK

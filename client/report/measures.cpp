#include "client/report/measures.h"

#include <json/reader.h>
#include <json/value.h>

#include <charconv>
#include <cmath>
#include <memory>
#include <string_view>

#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::size_t kMostCurves = 6;  // as many colours as can be told apart
constexpr std::size_t kMostContexts = 20000;
constexpr std::size_t kMostDevices = 20000;

std::string Fact(const ItemData& data, std::wstring_view key) {
  const auto found = data.find(std::wstring(key));
  return found == data.end() ? std::string() : String::UTF16ToUTF8(found->second);
}

// The number at the begin of a text such as "16384MB"; nothing where there is none.
std::optional<double> LeadingNumber(const std::string& text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || !std::isfinite(number)) return std::nullopt;
  return number;
}

std::optional<double> Number(const ItemData& data, std::wstring_view key) {
  return LeadingNumber(Fact(data, key));
}

// One of the four numbers of an ATA attribute.
std::optional<double> AtaNumber(const ItemData& data, std::wstring_view key, const char* which) {
  const std::string text = Fact(data, key);
  if (text.empty() || text.front() != '{') return std::nullopt;
  static const Json::CharReaderBuilder* const kBuilder = [] {
    auto* const builder = new Json::CharReaderBuilder;
    (*builder)["stackLimit"] = 8;
    return builder;
  }();
  const std::unique_ptr<Json::CharReader> reader(kBuilder->newCharReader());
  Json::Value attribute;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &attribute, nullptr)) return std::nullopt;
  } catch (const Json::Exception&) {  // jsoncpp reports nesting beyond the limit so
    return std::nullopt;
  }
  if (!attribute.isObject() || !attribute[which].isString()) return std::nullopt;
  return LeadingNumber(attribute[which].asString());
}

std::optional<double> DriveTemperature(const ItemData& data) {
  if (const auto celsius = Number(data, L"TemperatureC")) return celsius;
  for (const wchar_t* const key : {L"Temperature", L"TemperatureC", L"AirflowTemperature"}) {
    if (const auto raw = AtaNumber(data, key, "raw"); raw && *raw >= 0 && *raw < 1e15) {
      // Many drives keep the least and the most they had in the upper bytes.
      return static_cast<double>(static_cast<std::uint64_t>(*raw) & 0xFF);
    }
  }
  return std::nullopt;
}

std::optional<double> DriveWear(const ItemData& data) {
  if (const auto used = Number(data, L"PercentageUsed")) return used;
  for (const wchar_t* const key :
       {L"MediaWearoutIndicator", L"EnduranceRemaining", L"LifeLeft", L"SSDWearLevelingCount"}) {
    if (const auto left = AtaNumber(data, key, "normalized"); left && *left <= 100) return 100 - *left;
  }
  return std::nullopt;
}

// Percent; nothing of a whole that is none.
std::optional<double> Share(std::optional<double> part, std::optional<double> whole) {
  if (!part || !whole || *whole <= 0) return std::nullopt;
  return 100 * *part / *whole;
}

std::optional<double> Rest(std::optional<double> percent) {
  if (!percent) return std::nullopt;
  return 100 - *percent;
}

}  // namespace

bool Measures::Wants(const std::string& dataset) {
  for (const char* const name : {"CPUEvent", "MemoryEvent", "BatteryEvent", "StorageEvent", "PCIe_NVMe_SMARTEvent",
                                 "SATA_SSD_SMARTEvent", "SMARTEvent"}) {
    if (dataset == name) return true;
  }
  return false;
}

void Measures::AddContext(const DatasetContext& context) {
  const ItemData& facts = context.item_data();
  Device device;
  if (const std::string volume = Fact(facts, L"VolumeId"); !volume.empty()) {
    device = {volume, Fact(facts, L"VolumeRole") + ' ' + Fact(facts, L"FileSystem")};
  } else if (const std::string drive = Fact(facts, L"Model"); !drive.empty()) {
    // The datasets of drives tell of one drive by the same hash.
    device = {drive + Fact(facts, L"SerialNumber"), drive};
  } else if (const std::string battery = Fact(facts, L"Id"); !battery.empty()) {
    device = {battery + Fact(facts, L"SerialNumber"), battery, Number(facts, L"DesignChargeCapacity").value_or(0)};
  }
  if (device.key.empty()) return;
  if (devices_.size() >= kMostContexts && !devices_.contains(context.dataset_context_id())) {
    if (unknown_devices_.size() < kMostContexts) unknown_devices_.insert(std::move(device.key));
    return;
  }
  devices_[context.dataset_context_id()] = std::move(device);
}

void Measures::AddItem(const ItemEvent& item, std::int64_t seconds) {
  const ItemData& data = item.item_data();
  if (data.empty()) return;
  const auto found = devices_.find(item.dataset_context_id());
  const Device device = found == devices_.end() ? Device() : found->second;
  const auto add = [&](Measure measure, std::optional<double> value) {
    if (value) Add(measure, device, seconds, *value);
  };
  const std::wstring& dataset = item.dataset_name();
  if (dataset == L"CPUEvent") {
    // Peaks are looked for: among the values of the interval they would say that the processor is always busy.
    if (item.item_name() == L"ReadUsagePerInterval") add(Measure::kProcessorUse, Number(data, L"CPUUtilization"));
  } else if (dataset == L"MemoryEvent") {
    add(Measure::kMemoryUse, Rest(Share(Number(data, L"FreePhysicalMemory"), Number(data, L"VisibleMemory"))));
  } else if (found == devices_.end() && !unknown_devices_.empty()) {
    return;  // of one of them, maybe: several in one curve would be none's
  } else if (dataset == L"BatteryEvent") {
    add(Measure::kBatteryCharge, Number(data, L"BatteryChargeRemaining"));
    add(Measure::kBatteryHealth, Share(Number(data, L"FullChargeCapacity"), device.capacity_when_new));
  } else if (dataset == L"StorageEvent") {
    add(Measure::kVolumeUse, Rest(Share(Number(data, L"FreeSpace"), Number(data, L"Size"))));
  } else {
    add(Measure::kDriveTemperature, DriveTemperature(data));
    add(Measure::kDriveWear, DriveWear(data));
  }
}

void Measures::Add(Measure measure, const Device& device, std::int64_t seconds, double value) {
  if (!(std::fabs(value) <= kLargestValue)) return;  // no percentage, and no temperature
  auto& lines = lines_[measure];
  auto line = lines.find(device.key);
  if (line == lines.end()) {
    if (lines.size() >= kMostCurves) {
      if (auto& others = without_room_[measure]; others.size() < kMostDevices) others.insert(device.key);
      return;
    }
    line = lines.emplace(device.key, Line{device.name, std::vector<Extremes>(TimeAxis::kBuckets)}).first;
  }
  line->second.buckets[axis_.BucketOf(seconds)].Add(value);
}

std::vector<Timeline> Measures::Take(std::size_t& left_out) {
  std::vector<Timeline> timelines;
  for (auto& [measure, lines] : lines_) {
    Timeline timeline{measure, {}};
    std::map<std::string, int> names;
    for (auto& [key, line] : lines) {
      const int number = ++names[line.name];
      timeline.curves.push_back(
          {number == 1 ? line.name : line.name + " (" + std::to_string(number) + ')', std::move(line.buckets)});
    }
    timelines.push_back(std::move(timeline));
    left_out += without_room_[measure].size();
  }
  // A device that has a context of its own among the known ones is not left out for a later one.
  for (const auto& [id, device] : devices_)
    unknown_devices_.erase(device.key);
  left_out += unknown_devices_.size();
  lines_.clear();
  return timelines;
}

}  // namespace TVK

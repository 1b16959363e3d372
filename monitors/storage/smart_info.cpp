#include "monitors/storage/smart_info.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr wchar_t kNothingNamed[] = L"the drive tells no attribute that has a name";

bool IsFailing(const TVK::AtaAttribute& attribute) {
  return attribute.normalized != 0 && attribute.threshold && attribute.normalized <= *attribute.threshold;
}

}  // namespace

SmartInfo::SmartInfo(const TVK::Log& log) : SmartInfo(log, L"SmartInfo", TVK::kGenericSmartNames) {}

SmartInfo::SmartInfo(const TVK::Log& log, const wchar_t* class_name, const TVK::SmartNames& names)
    : log_(log), class_name_(class_name), names_(names) {}

SATASmartInfo::SATASmartInfo(const TVK::Log& log) : SmartInfo(log, L"SATASmartInfo", TVK::kSataSmartNames) {}

bool SmartInfo::FillSmartAttribValues(const TVK::AtaSmart& smart, ItemData& data) const {
  if (Fill(smart, false, data)) return true;
  log_.e(L"%s FillSmartAttribValues failed reason: %s", class_name_, kNothingNamed);
  return false;
}

bool SmartInfo::FillSmartAttribValues2(const TVK::AtaSmart& smart, ItemData& data) const {
  if (Fill(smart, true, data)) return true;
  log_.e(L"%s FillSmartAttribValues2 failed reason: %s", class_name_, kNothingNamed);
  return false;
}

bool SmartInfo::TellsThresholds(const TVK::AtaSmart& smart) {
  return std::ranges::any_of(smart.attributes, [](const auto& one) { return one.threshold.has_value(); });
}

std::optional<ItemData> SmartInfo::ToItemData(const TVK::AtaSmart& smart) const {
  ItemData data;
  const bool filled = TellsThresholds(smart) ? FillSmartAttribValues2(smart, data) : FillSmartAttribValues(smart, data);
  return filled ? std::optional(std::move(data)) : std::nullopt;
}

std::wstring SmartInfo::ValueText(const TVK::AtaAttribute& attribute, bool with_threshold) {
  const bool tell_threshold = with_threshold && attribute.threshold;
  return L"{ \"raw\": \"" + std::to_wstring(attribute.raw) + L"\",\"normalized\": \"" +
         std::to_wstring(attribute.normalized) + L"\",\"threshold\": \"" +
         (tell_threshold ? std::to_wstring(*attribute.threshold) : std::wstring()) + L"\",\"worst\": \"" +
         std::to_wstring(attribute.worst) + L"\"}";
}

bool SmartInfo::Fill(const TVK::AtaSmart& smart, bool with_thresholds, ItemData& data) const {
  bool found = false;
  for (const TVK::AtaAttribute& attribute : smart.attributes) {
    const std::wstring_view name = names_[attribute.id];
    if (name.empty()) continue;
    data[std::wstring(name)] = ValueText(attribute, with_thresholds);
    found = true;
  }
  return found;
}

std::optional<StorageCollector::HardDiskSmartInfo> SmartInfo::FoundPredictFailure(const TVK::AtaSmart& smart) const {
  const std::vector<StorageCollector::HardDiskSmartInfo> failures = PredictedFailures(smart);
  if (failures.empty()) return std::nullopt;
  const StorageCollector::HardDiskSmartInfo& first = failures.front();
  log_.i(L"SmartInfo::FoundPredictFailure: %s,value=%d,worst=%d,thresh=%d", first.getName(),
         first.getAttribute().normalized, first.getAttribute().worst, *first.getAttribute().threshold);
  return first;
}

std::vector<StorageCollector::HardDiskSmartInfo> SmartInfo::PredictedFailures(const TVK::AtaSmart& smart) const {
  std::vector<StorageCollector::HardDiskSmartInfo> failures;
  for (const TVK::AtaAttribute& attribute : smart.attributes) {
    const std::wstring_view name = names_[attribute.id];
    if (!name.empty() && IsFailing(attribute)) failures.emplace_back(name, attribute);
  }
  return failures;
}

#include "monitors/storage/smart_info.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <tuple>

#include "client/text/decimal_text.h"

namespace {

constexpr wchar_t kNothingNamed[] = L"the drive tells no attribute that has a name";

/// A text of limited length, put together without a format and without growing: a sector has thirty of them.
class TextBuilder {
 public:
  template <std::size_t N>
  TextBuilder& Add(const wchar_t (&text)[N]) {
    end_ = std::copy_n(text, N - 1, end_);
    return *this;
  }
  TextBuilder& Add(std::uint64_t number) {
    const TVK::DecimalText digits(number);
    end_ = std::ranges::copy(digits.view(), end_).out;
    return *this;
  }
  std::wstring text() const { return std::wstring(characters_.data(), static_cast<const wchar_t*>(end_)); }

 private:
  std::array<wchar_t, 128> characters_;  // four numbers, the longest of 48 bits, and the 57 characters between them
  wchar_t* end_ = characters_.data();
};

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

std::optional<ItemData> SmartInfo::ToItemData(const TVK::AtaSmart& smart) const {
  const bool thresholds =
      std::ranges::any_of(smart.attributes, [](const auto& one) { return one.threshold.has_value(); });
  ItemData data;
  const bool filled = thresholds ? FillSmartAttribValues2(smart, data) : FillSmartAttribValues(smart, data);
  return filled ? std::optional(std::move(data)) : std::nullopt;
}

std::wstring SmartInfo::ValueText(const TVK::AtaAttribute& attribute, bool with_threshold) {
  TextBuilder text;
  text.Add(L"{ \"raw\": \"").Add(attribute.raw);
  text.Add(L"\",\"normalized\": \"").Add(attribute.normalized);
  text.Add(L"\",\"threshold\": \"");
  if (with_threshold && attribute.threshold) text.Add(*attribute.threshold);
  text.Add(L"\",\"worst\": \"").Add(attribute.worst).Add(L"\"}");
  return text.text();
}

bool SmartInfo::Fill(const TVK::AtaSmart& smart, bool with_thresholds, ItemData& data) const {
  // In the order of the names, so that each entry finds its place beside the one before it.
  std::array<const TVK::AtaAttribute*, std::tuple_size_v<TVK::SmartNames>> by_rank = {};
  for (const TVK::AtaAttribute& attribute : smart.attributes) {
    const TVK::SmartName& name = names_[attribute.id];
    if (!name.text.empty()) by_rank[name.rank] = &attribute;
  }
  bool found = false;
  auto next = data.begin();
  for (const TVK::AtaAttribute* const attribute : by_rank) {
    if (attribute == nullptr) continue;
    const auto entry =
        data.insert_or_assign(next, std::wstring(names_[attribute->id].text), ValueText(*attribute, with_thresholds));
    next = std::next(entry);
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
    const std::wstring_view name = names_[attribute.id].text;
    if (!name.empty() && IsFailing(attribute)) failures.emplace_back(name, attribute);
  }
  return failures;
}

#include "monitors/storage/smart_info.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "client/text/decimal_text.h"

namespace {

constexpr wchar_t kNothingNamed[] = L"the drive tells no attribute that has a name";

/// A text of limited length, put together without a format and without growing: a sector has thirty of them.
class TextBuilder {
 public:
  TextBuilder& Add(std::wstring_view text) {
    end_ = std::ranges::copy(text, end_).out;
    return *this;
  }
  TextBuilder& Add(std::uint64_t number) { return Add(TVK::DecimalText(number).view()); }
  std::wstring_view text() { return {characters_.data(), end_}; }

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

bool SmartInfo::Fill(const TVK::AtaSmart& smart, bool with_thresholds, ItemData& data) const {
  bool found = false;
  for (const TVK::AtaAttribute& attribute : smart.attributes) {
    const wchar_t* const name = names_[attribute.id];
    if (name == nullptr) continue;
    TextBuilder text;
    text.Add(L"{ \"raw\": \"").Add(attribute.raw);
    text.Add(L"\",\"normalized\": \"").Add(attribute.normalized);
    text.Add(L"\",\"threshold\": \"");
    if (with_thresholds && attribute.threshold) text.Add(*attribute.threshold);
    text.Add(L"\",\"worst\": \"").Add(attribute.worst).Add(L"\"}");
    data[name] = text.text();
    found = true;
  }
  return found;
}

std::optional<TVK::SmartCheckEntry> SmartInfo::FoundPredictFailure(const TVK::AtaSmart& smart) const {
  const std::vector<TVK::SmartCheckEntry> failures = PredictedFailures(smart);
  if (failures.empty()) return std::nullopt;
  const TVK::SmartCheckEntry& first = failures.front();
  log_.i(L"SmartInfo::FoundPredictFailure: %s,value=%d,worst=%d,thresh=%d", first.name, first.value, first.worst,
         first.threshold);
  return first;
}

std::vector<TVK::SmartCheckEntry> SmartInfo::PredictedFailures(const TVK::AtaSmart& smart) const {
  std::vector<TVK::SmartCheckEntry> failures;
  for (const TVK::AtaAttribute& attribute : smart.attributes) {
    const wchar_t* const name = names_[attribute.id];
    if (name != nullptr && IsFailing(attribute))
      failures.push_back({name, attribute.normalized, attribute.worst, *attribute.threshold});
  }
  return failures;
}

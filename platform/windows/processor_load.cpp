#include "platform/windows/processor_load.h"

#include <pdhmsg.h>

#include <string_view>
#include <vector>

#include "platform/windows/owner.h"

namespace platform::windows {
namespace {

class PdhLoadReader final : public ProcessorLoadReader {
 public:
  PdhLoadReader(UniquePdhQuery query, PDH_HCOUNTER counter, bool wildcard)
      : query_(std::move(query)), counter_(counter), wildcard_(wildcard) {}

  std::optional<std::int32_t> Sample() override {
    if (PdhCollectQueryData(query_.get()) != ERROR_SUCCESS) return std::nullopt;
    // The single value of a counter with many instances is an error, or the one of any instance.
    return wildcard_ ? Total() : Single();
  }

 private:
  static bool IsValid(const PDH_FMT_COUNTERVALUE& value) {
    return value.CStatus == PDH_CSTATUS_VALID_DATA || value.CStatus == PDH_CSTATUS_NEW_DATA;
  }

  std::optional<std::int32_t> Single() const {
    PDH_FMT_COUNTERVALUE value{};
    if (PdhGetFormattedCounterValue(counter_, PDH_FMT_LONG, nullptr, &value) != ERROR_SUCCESS || !IsValid(value)) {
      return std::nullopt;
    }
    return value.longValue;
  }

  std::optional<std::int32_t> Total() {
    // Processors may come while it is read, so the length is asked for again; the buffer is kept for the next sample.
    DWORD count = 0;
    PDH_STATUS status = ERROR_SUCCESS;
    for (int attempt = 0; attempt < 4; ++attempt) {
      DWORD size = static_cast<DWORD>(buffer_.size() * sizeof buffer_[0]);
      status = PdhGetFormattedCounterArrayW(counter_, PDH_FMT_LONG, &size, &count, buffer_.data());
      if (status != static_cast<PDH_STATUS>(PDH_MORE_DATA)) break;
      buffer_.resize(size / sizeof buffer_[0] + 1);
    }
    if (status != ERROR_SUCCESS) return std::nullopt;
    for (DWORD i = 0; i < count; ++i) {
      const PDH_FMT_COUNTERVALUE_ITEM_W& item = buffer_[i];
      if (std::wstring_view(item.szName) == L"_Total" && IsValid(item.FmtValue)) return item.FmtValue.longValue;
    }
    return std::nullopt;
  }

  UniquePdhQuery query_;
  PDH_HCOUNTER counter_;  // closed with the query
  bool wildcard_;
  std::vector<PDH_FMT_COUNTERVALUE_ITEM_W> buffer_;  // the texts lie behind the items
};

ProcessorLoadOpening Failure(PDH_STATUS status) {
  return {nullptr, static_cast<std::uint32_t>(status)};
}

}  // namespace

ProcessorLoadOpening OpenProcessorLoad(const wchar_t* path) {
  UniquePdhQuery query;
  if (const PDH_STATUS status = PdhOpenQueryW(nullptr, 0, query.Receive()); status != ERROR_SUCCESS) {
    return Failure(status);
  }
  PDH_HCOUNTER counter = nullptr;
  if (const PDH_STATUS status = PdhAddEnglishCounterW(query.get(), path, 0, &counter); status != ERROR_SUCCESS) {
    return Failure(status);
  }
  // A rate needs two readings: this is the first one. When it fails, the first sample stays empty.
  PdhCollectQueryData(query.get());
  const bool wildcard = std::wstring_view(path).find(L"(*)") != std::wstring_view::npos;
  return {std::make_unique<PdhLoadReader>(std::move(query), counter, wildcard), 0};
}

}  // namespace platform::windows

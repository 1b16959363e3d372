// The decoders of what drives answer, and what records tell of it. The first byte selects the decoder, the rest is the
// answer; one that has a checksum is read as it came and with a checksum that is right. Nothing outside the answer is
// read, and what comes out lies in its range.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>

#include "client/storage/ata_identify.h"
#include "client/storage/ata_self_test_log.h"
#include "client/storage/nvme_controller.h"
#include "client/storage/nvme_self_test_log.h"
#include "monitors/storage/pcie_nvme_smart_info.h"
#include "monitors/storage/smart_info.h"
#include "testing/drive_sectors.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

void Require(bool holds) {
  if (!holds) std::abort();
}

void RequireClean(const std::string& text, std::size_t most) {
  Require(text.size() <= most && std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F; }));
  Require(!text.starts_with(' ') && !text.ends_with(' '));
}

template <typename Identity>
void RequireCleanTexts(const Identity& identity) {
  RequireClean(identity.serial_number, 20);
  RequireClean(identity.model, 40);
  RequireClean(identity.firmware_version, 8);
}

void RequireStatus(const TVK::AtaSelfTestStatus& status) {
  Require(status.code < 16 && status.tenths_remaining < 16);
  Require(status.code == TVK::kAtaSelfTestRuns || status.tenths_remaining == 0);
}

void AtaIdentify(Bytes sector) {
  if (const auto identity = TVK::DecodeAtaIdentify(sector)) RequireCleanTexts(*identity);
}

void AtaSmart(Bytes values, Bytes thresholds) {
  const auto smart = TVK::DecodeAtaSmart(values, thresholds);
  if (!smart) return;
  Require(smart->attributes.size() <= 30);
  RequireStatus(smart->self_test);
  for (const TVK::AtaAttribute& attribute : smart->attributes)
    Require(attribute.id != 0 && attribute.raw >> 48 == 0);
  const TVK::Log log;
  const SmartInfo generic(log);
  const SATASmartInfo sata(log);
  for (const SmartInfo* const info : {&generic, static_cast<const SmartInfo*>(&sata)}) {
    ItemData data;
    Require(info->FillSmartAttribValues2(*smart, data) == !data.empty());
    Require(data.size() <= smart->attributes.size());
    for (const StorageCollector::HardDiskSmartInfo& failure : info->PredictedFailures(*smart)) {
      const TVK::AtaAttribute& attribute = failure.getAttribute();
      Require(data.contains(failure.getName()) && attribute.normalized != 0 &&
              attribute.normalized <= attribute.threshold.value());
    }
  }
}

void AtaSelfTestLog(Bytes sector) {
  const auto log = TVK::DecodeAtaSelfTestLog(sector);
  if (!log || !log->newest) return;
  const TVK::AtaSelfTestEntry& entry = *log->newest;
  RequireStatus(entry.status);
  Require(entry.failing_lba.value_or(0) < 0xFFFFFFFF);
}

void NvmeController(Bytes data) {
  if (const auto identity = TVK::DecodeNvmeController(data)) RequireCleanTexts(*identity);
}

void NvmeHealth(Bytes page) {
  const TVK::Log log;
  PCIeNVMeSmartInfo info(log);
  const bool decoded = info.ReadSMARTInfo([&](TVK::NvmeHealth& health) {
    const auto told = TVK::DecodeNvmeHealth(page);
    if (told) health = *told;
    return told ? 0 : 1;
  }) == 0;
  ItemData data;
  Require((info.GetSmartInfoList(data) == 0) == decoded);
  Require(!decoded || (data.size() >= 16 && data.size() <= 25));
  for (const auto& [key, text] : data)
    Require(!text.empty() && text.find_first_not_of(L"0123456789", text.starts_with(L'-') ? 1 : 0) == text.npos);
}

void NvmeSelfTestLog(Bytes page) {
  const auto log = TVK::DecodeNvmeSelfTestLog(page);
  if (!log) return;
  Require(log->running < 16 && log->percent_complete < 128 && (log->running != 0 || log->percent_complete == 0));
  if (log->newest) Require(log->newest->code != 0 && log->newest->code < 16 && log->newest->result < 15);
}

void Decode(unsigned selected, Bytes answer) {
  switch (selected % 6) {
    case 0:
      return AtaIdentify(answer);
    case 1:
      return AtaSmart(answer.first(std::min<std::size_t>(answer.size(), 512)),
                      answer.subspan(std::min<std::size_t>(answer.size(), 512)));
    case 2:
      return AtaSelfTestLog(answer);
    case 3:
      return NvmeController(answer);
    case 4:
      return NvmeHealth(answer);
    default:
      return NvmeSelfTestLog(answer);
  }
}

/// Each whole sector of `answer` with a right checksum.
testing_support::Sector Seal(Bytes answer) {
  testing_support::Sector sealed;
  while (answer.size() >= 512) {
    const auto sector = testing_support::WithChecksum({answer.begin(), answer.begin() + 512});
    sealed.insert(sealed.end(), sector.begin(), sector.end());
    answer = answer.subspan(512);
  }
  sealed.insert(sealed.end(), answer.begin(), answer.end());
  return sealed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // Of their own, so that a byte behind them is found out.
  const std::size_t length = size - 1;
  const auto copy = std::make_unique<std::uint8_t[]>(length);
  std::copy_n(data + 1, length, copy.get());
  Decode(data[0], {copy.get(), length});
  Decode(data[0], Seal({copy.get(), length}));
  return 0;
}

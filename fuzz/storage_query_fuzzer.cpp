// The decoders of what Windows' storage drivers answer: nothing outside the bytes is read, a page that is done is whole
// and one that is not has no bytes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "platform/storage_query.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  if (size == 0) return 0;
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(size - 1);
  std::copy_n(data + 1, size - 1, copy.get());
  const std::span<const std::uint8_t> bytes(copy.get(), size - 1);
  const auto expect = [](const DriveAnswer& answer, std::size_t whole) {
    if (answer.bytes.size() != (answer.result == DriveResult::kDone ? whole : 0)) std::abort();
  };
  switch (data[0] % 6) {
    case 0:
      expect(DecodeNvmePage(DrivePage::kNvmeController, bytes), 4096);
      break;
    case 1:
      expect(DecodeNvmePage(DrivePage::kNvmeHealth, bytes), 512);
      break;
    case 2:
      expect(DecodeNvmePage(DrivePage::kNvmeSelfTestLog, bytes), 564);
      break;
    case 3:
      expect(DecodeNvmeAction(bytes), 0);
      break;
    case 4:
      expect(DecodeAtaReply(bytes, true).answer, kAtaSectorSize);
      expect(DecodeAtaReply(bytes, false).answer, 0);
      break;
    default:
      expect(DecodeSmartReply(bytes), kAtaSectorSize);
      break;
  }
  return 0;
}

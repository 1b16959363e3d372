// The decoder of SCSI sense data: nothing outside its bytes is read, and no failure passes for success.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "platform/ata_pass_through.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  if (size == 0) return 0;
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(size - 1);
  std::copy_n(data + 1, size - 1, copy.get());
  const SenseData sense = DecodeSense(std::span<const std::uint8_t>(copy.get(), size - 1));
  const AtaPassThroughOutcome outcome = ReadAtaPassThrough(data[0], sense);
  if (outcome.answer.result == DriveResult::kDone) {
    const bool good = sense.is_told ? sense.key <= 1 : data[0] == 0;
    const bool failed = sense.registers && (sense.registers->command & 0x21) != 0;
    if (!good || failed) std::abort();
  }
  if (outcome.registers) AtaPowerOf(*outcome.registers);
  return 0;
}

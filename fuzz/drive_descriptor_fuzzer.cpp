// The decoders of what Windows tells of a drive: nothing outside the bytes is read, and the texts are clean.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>

#include "platform/drive_descriptor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(size);
  std::copy_n(data, size, copy.get());
  const std::span<const std::uint8_t> bytes(copy.get(), size);
  platform::DecodeAdapterBus(bytes);
  const auto drive = platform::DecodeDriveDescriptor(bytes);
  if (!drive) return 0;
  for (const std::string& text : {drive->model, drive->firmware_version, drive->serial_number}) {
    const bool clean = std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F; });
    if (!clean || text.starts_with(' ') || text.ends_with(' ')) std::abort();
  }
  return 0;
}

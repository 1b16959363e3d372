// The decoder of a recorded drive's text: what it takes comes back from its own writing, in one line a field.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/drive_recording.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto drive = platform::DecodeDriveText({reinterpret_cast<const char*>(data), size});
  if (!drive) return 0;
  if (drive->path.empty() || platform::DecodeDriveText(platform::EncodeDriveText(*drive)) != drive) std::abort();
  if (!platform::IsDriveFolderName(platform::DriveFolderName(drive->path))) std::abort();
  return 0;
}

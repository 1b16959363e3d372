// The blanking of a recorded drive: the first byte selects the page, the second how many bytes of the rest are the
// serial number that the system tells; what follows is the page, cut or filled up. Nothing that is a serial number is
// left, a right checksum stays right.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "platform/drive_blanking.h"

namespace {

using platform::DrivePage;
using Bytes = std::vector<std::uint8_t>;

constexpr DrivePage kPages[] = {DrivePage::kAtaIdentify,        DrivePage::kAtaSmartValues, DrivePage::kNvmeController,
                                DrivePage::kAtaSmartThresholds, DrivePage::kNvmeHealth,     DrivePage::kAtaSelfTestLog,
                                DrivePage::kNvmeSelfTestLog};
constexpr char kName[] = "BLANKED-1";

void Require(bool holds) {
  if (!holds) std::abort();
}

bool SumsUp(const Bytes& bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), 0u) % 256 == 0;
}

bool HasChecksum(DrivePage page, const Bytes& bytes) {
  if (page == DrivePage::kAtaIdentify) return bytes[510] == 0xA5;
  return bytes.size() == 512 && page != DrivePage::kNvmeHealth;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const DrivePage page = kPages[data[0] % std::size(kPages)];
  const std::size_t told = std::min<std::size_t>(data[1] % 32, size - 2);
  platform::DriveRecording recording{
      .listing = {.path = "/dev/sda", .serial_number = std::string(data + 2, data + 2 + told)}};
  Bytes& bytes = recording.pages[page];
  bytes.assign(data + 2 + told, data + size);
  bytes.resize(platform::PageSize(page));
  recording.listing.model = std::string(bytes.begin(), bytes.begin() + 64);

  const bool sealed = HasChecksum(page, bytes) && SumsUp(bytes);
  const std::string own = platform::SerialNumberOf(recording);
  platform::BlankIdentity(recording, kName);
  Require(bytes.size() == platform::PageSize(page) && (!sealed || SumsUp(bytes)));
  // Shorter ones are no number of a unit, and what stands in their place may look like some.
  if (own.size() >= 4 && own.find_first_of("BLANKED-1X ") == own.npos) {
    Require(platform::SerialNumberOf(recording) == kName);
    Require(recording.listing.model.find(own) == own.npos);
    Require(std::search(bytes.begin(), bytes.end() - 1, own.begin(), own.end()) == bytes.end() - 1);
  }
  return 0;
}

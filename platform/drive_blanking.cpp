#include "platform/drive_blanking.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// A part of a page, in bytes.
struct Part {
  std::size_t begin;
  std::size_t size;
};

struct PagePlan {
  DrivePage page;
  Part serial;  ///< None: size 0.
  /// The words of it hold two characters each, the first in the upper byte.
  bool swapped;
  std::vector<Part> zeros;
};

/// Parts of `size` bytes, `step` from each other.
std::vector<Part> Repeated(std::size_t begin, std::size_t step, std::size_t size, std::size_t count) {
  std::vector<Part> parts;
  for (std::size_t i = 0; i < count; ++i)
    parts.push_back({begin + i * step, size});
  return parts;
}

const PagePlan& PlanOf(DrivePage page) {
  static const std::vector<PagePlan> plans = [] {
    // Bytes 9..23 of each of the 21 entries, and 506..507, are the maker's (ACS-4, SMART self-test log).
    std::vector<Part> ata_tests = Repeated(2 + 9, 24, 15, 21);
    ata_tests.push_back({506, 2});
    return std::vector<PagePlan>{
        // Words 10..19 the serial number, 108..111 the worldwide name and behind it room for a longer one, 129..159 the
        // maker's, 176..205 the serial number of the medium (ACS-4, 7.13.6).
        {DrivePage::kAtaIdentify, {20, 20}, true, {{216, 16}, {258, 62}, {352, 60}}},
        // The maker's: 366, 371 and from 386 (ACS-3, SMART READ DATA); of the thresholds from 380 (ATA/ATAPI-5).
        {DrivePage::kAtaSmartValues, {}, false, {{366, 1}, {371, 1}, {386, 125}}},
        {DrivePage::kAtaSmartThresholds, {}, false, {{380, 131}}},
        {DrivePage::kAtaSelfTestLog, {}, false, ata_tests},
        // SN, FGUID, SUBNQN and the maker's (NVM Express Base 2.0, Identify Controller).
        {DrivePage::kNvmeController, {4, 20}, false, {{112, 16}, {768, 256}, {3072, 1024}}},
        // What is reserved; of each of the 20 results of a self-test the maker's two bytes.
        {DrivePage::kNvmeHealth, {}, false, {{232, 280}}},
        {DrivePage::kNvmeSelfTestLog, {}, false, Repeated(4 + 26, 28, 2, 20)},
    };
  }();
  return *std::ranges::find(plans, page, &PagePlan::page);
}

std::string Trimmed(const std::string& text) {
  constexpr std::string_view kBlanks(" \0", 2);
  const auto first = text.find_first_not_of(kBlanks);
  return first == text.npos ? std::string() : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

std::string ReadSerial(const PagePlan& plan, const Bytes& bytes) {
  std::string text;
  for (std::size_t i = 0; i < plan.serial.size; ++i)
    text += static_cast<char>(bytes[(plan.serial.begin + i) ^ (plan.swapped ? 1 : 0)]);
  return Trimmed(text);
}

void WriteSerial(const PagePlan& plan, std::string_view name, Bytes& bytes) {
  for (std::size_t i = 0; i < plan.serial.size; ++i)
    bytes[(plan.serial.begin + i) ^ (plan.swapped ? 1 : 0)] =
        static_cast<std::uint8_t>(i < name.size() ? name[i] : ' ');
}

/// Puts X in the place of each `secret`, the characters of words in their order or swapped.
template <typename Content>
void Overwrite(std::string_view secret, std::size_t swap, Content& content) {
  for (std::size_t at = 0; at + secret.size() <= content.size(); ++at) {
    std::size_t same = 0;
    while (same < secret.size() && ((at + same) ^ swap) < content.size() &&
           static_cast<char>(content[(at + same) ^ swap]) == secret[same])
      ++same;
    if (same < secret.size()) continue;
    for (std::size_t i = 0; i < secret.size(); ++i)
      content[(at + i) ^ swap] = 'X';
  }
}

std::uint8_t Sum(const Bytes& bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), std::uint8_t{0},
                         [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum + byte); });
}

/// ATA's sectors end with a byte that makes their sum zero; that of IDENTIFY where a mark before it says so.
bool HasChecksum(DrivePage page, const Bytes& bytes) {
  constexpr std::uint8_t kMark = 0xA5;
  if (page == DrivePage::kAtaIdentify) return bytes[510] == kMark;
  return PageSize(page) == 512 && page != DrivePage::kNvmeHealth;
}

}  // namespace

std::string SerialNumberOf(const DriveRecording& recording) {
  for (const auto& [page, bytes] : recording.pages) {
    if (std::string own = ReadSerial(PlanOf(page), bytes); !own.empty()) return own;
  }
  return Trimmed(recording.listing.serial_number);
}

void BlankIdentity(DriveRecording& recording, std::string_view name) {
  std::vector<std::string> secrets = {Trimmed(recording.listing.serial_number)};
  for (const auto& [page, bytes] : recording.pages)
    secrets.push_back(ReadSerial(PlanOf(page), bytes));
  // What is shorter is no number of a unit, and would be found in everything.
  constexpr std::size_t kShortest = 4;
  std::erase_if(secrets, [](const std::string& secret) { return secret.size() < kShortest; });

  for (auto& [page, bytes] : recording.pages) {
    const PagePlan& plan = PlanOf(page);
    const std::uint8_t sum = Sum(bytes);
    const bool checked = HasChecksum(page, bytes);
    const bool named = !ReadSerial(plan, bytes).empty();
    for (const Part& part : plan.zeros)
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(part.begin), part.size, std::uint8_t{0});
    for (const std::string& secret : secrets) {
      Overwrite(secret, 0, bytes);
      Overwrite(secret, 1, bytes);
    }
    if (named) WriteSerial(plan, name, bytes);
    // By as much as it was wrong before, if it was.
    if (checked) bytes.back() = static_cast<std::uint8_t>(bytes.back() + sum - Sum(bytes));
  }

  DriveListing& listing = recording.listing;
  for (const std::string& secret : secrets) {
    Overwrite(secret, 0, listing.model);
    Overwrite(secret, 0, listing.firmware_version);
  }
  if (!listing.serial_number.empty()) listing.serial_number = name;
}

}  // namespace platform

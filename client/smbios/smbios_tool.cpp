#include "client/smbios/smbios_tool.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <system_error>

#include "client/log/service_logs.h"
#include "client/log/wide_format.h"
#include "client/text/string.h"
#include "platform/firmware.h"
#include "platform/smbios_form.h"

namespace {

using platform::kRsmbHeaderSize;

constexpr int kErrorNoTable = 2;
constexpr int kErrorNoMemory = 3;
constexpr int kErrorLengthMismatch = 4;
constexpr int kErrorNotLoaded = 5;

constexpr std::size_t kStructureHeaderSize = 4;  // Type, length, handle.

std::size_t LengthInHeader(const std::vector<std::uint8_t>& buffer) {
  std::size_t length = 0;
  for (std::size_t i = kRsmbHeaderSize; i-- > 4;)
    length = length << 8 | buffer[i];
  return length;
}

/// Why a machine gave no table, by the error that it told.
std::string ReadProblem(std::uint32_t error) {
  const std::error_code code(static_cast<int>(error), std::system_category());
  if (!code || code == std::errc::no_such_file_or_directory) return "there is no SMBIOS table";
  if (code == std::errc::bad_message) return "the SMBIOS entry point is damaged";
  return "the SMBIOS table cannot be read: " + code.message() + " (error " + std::to_string(error) + ")";
}

}  // namespace

int SMBiosTool::GetSMBiosBuffer() {
  if (firmware_ != nullptr) {
    try {
      buffer_ = firmware_->ReadSmbios(&read_error_);
    } catch (const std::bad_alloc&) {
      return kErrorNoMemory;
    }
  }
  if (buffer_.empty()) return kErrorNoTable;
  if (buffer_.size() < kRsmbHeaderSize || LengthInHeader(buffer_) != buffer_.size() - kRsmbHeaderSize) {
    return kErrorLengthMismatch;
  }
  return 0;
}

int SMBiosTool::Initialize() {
  if (error_ == 0) return 0;
  if (!log_.is_open()) TVK::utility::InitLog(log_, TVK::ServiceLog(L"SMBiosTool.log"), 4);
  error_ = GetSMBiosBuffer();
  end_ = 0;
  if (buffer_.size() >= kRsmbHeaderSize) {
    end_ = kRsmbHeaderSize + std::min(LengthInHeader(buffer_), buffer_.size() - kRsmbHeaderSize);
  }
  if (error_ != 0) log_.e(L"SMBiosTool Initialize GetSMBiosBuffer() return fail! err: %d", error_);
  if (const std::string problem = Problem(); !problem.empty()) {
    log_.e(L"SMBiosTool Initialize: %s; %u structures can be read", TVK::String::UTF8ToUTF16(problem),
           Survey().structures);
  }
  return error_;
}

std::string SMBiosTool::Problem() const {
  if (error_ == kErrorNoMemory) return "there is no memory for the SMBIOS table";
  if (buffer_.empty()) return ReadProblem(read_error_);
  if (buffer_.size() < kRsmbHeaderSize) return "the SMBIOS table is shorter than its header";
  const TVK::SmbiosSurvey survey = Survey();
  const std::size_t there = buffer_.size() - kRsmbHeaderSize;
  if (survey.structures == 0) return "the SMBIOS table holds no whole structure";
  if (there < LengthInHeader(buffer_)) {
    return "the SMBIOS table is cut short: " + std::to_string(there) + " of its " +
           std::to_string(LengthInHeader(buffer_)) + " bytes are there";
  }
  if (survey.damaged) return "a structure of the SMBIOS table is damaged or cut short";
  // The entry point that came with version 3 tells only the most that the table may take: a table that was cut between
  // two structures lacks nothing but its end.
  if (!survey.ended && buffer_[1] >= 3) return "the SMBIOS table has no end; it may be cut short";
  return {};
}

std::size_t SMBiosTool::LengthAt(std::size_t offset) const {
  return platform::SmbiosStructureLength(std::span(buffer_).first(end_).subspan(offset));
}

std::size_t SMBiosTool::OffsetInTable(const unsigned char* structure) const {
  if (structure == nullptr || end_ == 0) return 0;
  // Pointers of different objects are ordered by std::less only.
  const std::less<const unsigned char*> before;
  const unsigned char* const begin = buffer_.data();
  if (before(structure, begin + kRsmbHeaderSize) || !before(structure, begin + end_)) return 0;
  return static_cast<std::size_t>(structure - begin);
}

/// Calls `visit` with offset and length of every structure. The end-of-table structure does not end the walk: older
/// firmware has structures behind it, and whoever made the buffer cut off what does not belong to the table.
template <typename Visit>
TVK::SmbiosSurvey SMBiosTool::Walk(Visit visit) const {
  TVK::SmbiosSurvey survey;
  for (std::size_t offset = kRsmbHeaderSize; offset < end_;) {
    const std::size_t length = LengthAt(offset);
    if (length == 0) {
      survey.damaged = !survey.ended;  // behind the end there may be padding
      break;
    }
    visit(offset, length);
    ++survey.structures;
    survey.ended |= buffer_[offset] == platform::kSmbiosEndOfTable;
    offset += length;
  }
  return survey;
}

int SMBiosTool::GetSMBiosBufferByType(int type, std::list<_SMBiosBuffer>& out) const {
  out.clear();
  if (end_ == 0) return kErrorNotLoaded;
  Walk([&](std::size_t offset, std::size_t length) {
    if (buffer_[offset] == type) out.push_back({&buffer_[offset], static_cast<unsigned long>(length)});
  });
  return 0;
}

TVK::SmbiosSurvey SMBiosTool::Survey() const {
  return Walk([](std::size_t, std::size_t) {});
}

int SMBiosTool::GetLengthOfStructure(const unsigned char* structure) const {
  const std::size_t offset = OffsetInTable(structure);
  return offset == 0 ? 0 : static_cast<int>(LengthAt(offset));
}

std::span<const unsigned char> SMBiosTool::GetStringBytes(unsigned char index, const unsigned char* structure,
                                                          unsigned long length) const {
  const std::size_t offset = OffsetInTable(structure);
  if (offset == 0 || index == 0 || length < kStructureHeaderSize) return {};
  const unsigned char* const end = structure + std::min<std::size_t>(length, end_ - offset);
  if (end - structure < static_cast<std::ptrdiff_t>(kStructureHeaderSize)) return {};
  if (structure[1] < kStructureHeaderSize || structure[1] > end - structure) return {};
  const unsigned char* text = structure + structure[1];
  for (unsigned number = 1;; ++number) {
    const auto* const text_end =
        static_cast<const unsigned char*>(std::memchr(text, 0, static_cast<std::size_t>(end - text)));
    // An empty string ends the set; a string that runs to the end of the structure lacks its end.
    if (text_end == nullptr || text_end == text) return {};
    if (number == index) return {text, text_end};
    text = text_end + 1;
  }
}

std::wstring SMBiosTool::GetString(unsigned char index, const unsigned char* structure, unsigned long length) const {
  const auto bytes = GetStringBytes(index, structure, length);
  return {bytes.begin(), bytes.end()};
}

std::wstring SMBiosTool::GetVersion() const {
  if (end_ == 0) return {};
  const unsigned major = buffer_[1];
  unsigned minor = buffer_[2];
  // Firmware that is known to misreport, corrected as dmidecode does.
  if (major == 2 && (minor == 31 || minor == 33)) minor = 3;
  if (major == 2 && minor == 51) minor = 6;
  return TVK::FormatWide(L"%u.%u", major, minor);
}

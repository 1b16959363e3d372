#include "platform/storage_query.h"

#include <algorithm>

#include "platform/little_endian.h"
#include "platform/nvme_command.h"

namespace platform {
namespace {

using Bytes = std::span<const std::uint8_t>;
using Buffer = std::vector<std::uint8_t>;

constexpr std::uint32_t kErrorGenFailure = 31;
constexpr std::uint32_t kErrorBusy = 170;
const DriveAnswer kInvalidData{DriveResult::kFailed, 13};

std::uint32_t Word(Bytes bytes, std::size_t at) {
  return LittleEndianAt<std::uint32_t>(bytes, at);
}

void PutWord(Buffer& bytes, std::size_t at, std::uint32_t number) {
  PutLittleEndian(bytes, at, number);
}

std::uint32_t Size(std::size_t size) {
  return static_cast<std::uint32_t>(size);
}

// The `size` bytes from `begin` on, when they are there.
std::optional<Bytes> Part(Bytes bytes, std::uint64_t begin, std::uint64_t size) {
  if (begin > bytes.size() || size > bytes.size() - begin) return std::nullopt;
  return bytes.subspan(static_cast<std::size_t>(begin), static_cast<std::size_t>(size));
}

DriveAnswer Done(Bytes page) {
  return {.bytes = Buffer(page.begin(), page.end())};
}

// STORAGE_PROPERTY_QUERY: PropertyId, QueryType (0, the standard one); the rest follows.
// STORAGE_PROTOCOL_DATA_DESCRIPTOR: Version, Size; the same follows.
constexpr std::size_t kDescriptorVersion = 0;
constexpr std::size_t kDescriptorSize = 4;
constexpr std::size_t kProtocolData = 8;
// STORAGE_PROTOCOL_SPECIFIC_DATA, from kProtocolData on; its offset of the data counts from its own begin.
constexpr std::size_t kProtocolType = kProtocolData;
constexpr std::size_t kDataType = kProtocolData + 4;
constexpr std::size_t kRequestValue = kProtocolData + 8;
constexpr std::size_t kDataOffset = kProtocolData + 16;
constexpr std::size_t kDataLength = kProtocolData + 20;
constexpr std::size_t kProtocolDataSize = 40;
constexpr std::size_t kHeadSize = kProtocolData + kProtocolDataSize;

constexpr std::uint32_t kProtocolTypeNvme = 3;

// STORAGE_PROTOCOL_COMMAND.
constexpr std::size_t kReturnStatus = 16;
constexpr std::size_t kErrorCode = 20;
constexpr std::size_t kErrorInfoLength = 28;
constexpr std::size_t kErrorInfoOffset = 44;
constexpr std::size_t kCommand = 80;
constexpr std::size_t kCommandSize = 64;  // a submission queue entry
constexpr std::size_t kErrorSize = 64;    // an entry of the log of errors (01h)

// ATA_PASS_THROUGH_EX.
constexpr std::size_t kAtaDataLength = 8;
constexpr std::size_t kAtaDataOffset = 24;
constexpr std::size_t kAtaTaskFile = 40;
constexpr std::size_t kAtaHeadSize = 48;

constexpr std::size_t kSmartRegisters = 4;
constexpr std::size_t kSmartInSize = 33;    // SENDCMDINPARAMS with the byte that stands for its data
constexpr std::size_t kSmartHeadSize = 16;  // SENDCMDOUTPARAMS without it

// Task file and IDEREGS are the same.
void PutRegisters(Buffer& bytes, std::size_t at, const AtaRegisters& registers) {
  const std::uint8_t file[] = {registers.features, registers.count,  registers.lba_low, registers.lba_middle,
                               registers.lba_high, registers.device, registers.command};
  std::ranges::copy(file, bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

AtaRegisters Registers(Bytes bytes, std::size_t at) {
  return {bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3], bytes[at + 4], bytes[at + 5], bytes[at + 6]};
}

}  // namespace

DriveAnswer WindowsDriveFailure(std::uint32_t error) {
  switch (error) {
    case 1:     // ERROR_INVALID_FUNCTION
    case 50:    // ERROR_NOT_SUPPORTED
    case 87:    // ERROR_INVALID_PARAMETER
    case 1117:  // ERROR_IO_DEVICE
      return {DriveResult::kNotSupported, error};
    case 5:     // ERROR_ACCESS_DENIED
    case 1314:  // ERROR_PRIVILEGE_NOT_HELD
      return {DriveResult::kNoRight, error};
    case 2:     // ERROR_FILE_NOT_FOUND
    case 55:    // ERROR_DEV_NOT_EXIST
    case 433:   // ERROR_NO_SUCH_DEVICE
    case 1167:  // ERROR_DEVICE_NOT_CONNECTED
      return {DriveResult::kGone, error};
    case 121:   // ERROR_SEM_TIMEOUT
    case 1460:  // ERROR_TIMEOUT
      return {DriveResult::kTimedOut, error};
    default:
      return {DriveResult::kFailed, error};
  }
}

Buffer NvmePageRequest(DrivePage page, NvmeScope scope) {
  const auto command = NvmeCommandOf(page);
  if (!command) return {};
  constexpr std::uint32_t kAdapterProtocolSpecific = 49;
  constexpr std::uint32_t kDeviceProtocolSpecific = 50;
  constexpr std::uint8_t kIdentify = 0x06;
  constexpr std::uint32_t kTypeIdentify = 1;
  constexpr std::uint32_t kTypeLogPage = 2;
  Buffer request(kHeadSize + command->bytes);
  PutWord(request, 0, scope == NvmeScope::kController ? kAdapterProtocolSpecific : kDeviceProtocolSpecific);
  PutWord(request, kProtocolType, kProtocolTypeNvme);
  PutWord(request, kDataType, command->opcode == kIdentify ? kTypeIdentify : kTypeLogPage);
  PutWord(request, kRequestValue, command->dword10 & 0xFF);  // what to identify, or the log's id
  PutWord(request, kDataOffset, kProtocolDataSize);
  PutWord(request, kDataLength, command->bytes);
  return request;
}

DriveAnswer DecodeNvmePage(DrivePage page, Bytes answer) {
  const auto command = NvmeCommandOf(page);
  if (!command || answer.size() < kHeadSize) return kInvalidData;
  const bool known = Word(answer, kDescriptorVersion) == kHeadSize && Word(answer, kDescriptorSize) == kHeadSize &&
                     Word(answer, kProtocolType) == kProtocolTypeNvme;
  const std::uint32_t offset = Word(answer, kDataOffset);
  if (!known || offset < kProtocolDataSize || Word(answer, kDataLength) < command->bytes) return kInvalidData;
  const auto data = Part(answer, std::uint64_t{kProtocolData} + offset, command->bytes);
  return data ? Done(*data) : kInvalidData;
}

Buffer NvmeActionRequest(DriveAction action, std::chrono::seconds limit) {
  const auto command = NvmeCommandOf(action);
  if (!command) return {};
  constexpr std::uint32_t kVersion = 1;
  constexpr std::uint32_t kStructureSize = 84;  // with the byte that stands for the command
  constexpr std::uint32_t kAdapterRequest = 0x80000000;
  constexpr std::uint32_t kAdminCommand = 1;
  Buffer request(kCommand + kCommandSize + kErrorSize);
  PutWord(request, 0, kVersion);
  PutWord(request, 4, kStructureSize);
  PutWord(request, 8, kProtocolTypeNvme);
  PutWord(request, 12, kAdapterRequest);
  PutWord(request, 24, Size(kCommandSize));
  PutWord(request, kErrorInfoLength, Size(kErrorSize));
  PutWord(request, 40, static_cast<std::uint32_t>(limit.count()));
  PutWord(request, kErrorInfoOffset, Size(kCommand + kCommandSize));
  PutWord(request, 56, kAdminCommand);
  PutWord(request, kCommand, command->opcode);
  PutWord(request, kCommand + 4, command->namespace_id);
  PutWord(request, kCommand + 40, command->dword10);
  return request;
}

DriveAnswer DecodeNvmeAction(Bytes answer) {
  // STORAGE_PROTOCOL_STATUS.
  constexpr std::uint32_t kSuccess = 0x1;
  constexpr std::uint32_t kError = 0x2;
  constexpr std::uint32_t kInvalidRequest = 0x3;
  constexpr std::uint32_t kNoDevice = 0x4;
  constexpr std::uint32_t kBusy = 0x5;
  constexpr std::uint32_t kNotSupported = 0xFF;
  if (answer.size() < kCommand) return kInvalidData;
  const std::uint32_t error = Word(answer, kErrorCode);
  switch (Word(answer, kReturnStatus)) {
    case kSuccess:
      return {};
    case kError:
      break;
    case kInvalidRequest:
    case kNotSupported:
      return {DriveResult::kNotSupported, error};
    case kNoDevice:
      return {DriveResult::kGone, error};
    case kBusy:
      return {DriveResult::kFailed, kErrorBusy};
    default:
      return {DriveResult::kFailed, kErrorGenFailure};
  }
  const auto entry = Part(answer, Word(answer, kErrorInfoOffset), Word(answer, kErrorInfoLength));
  if (entry && entry->size() >= kErrorSize) {
    constexpr std::size_t kStatusField = 12;  // above its phase bit
    const std::uint32_t status = LittleEndianAt<std::uint16_t>(*entry, kStatusField) >> 1;
    if (DriveAnswer outcome = NvmeOutcome(status); outcome.result != DriveResult::kDone) return outcome;
  }
  return {DriveResult::kRefused, error};
}

Buffer AtaRequest(const AtaRegisters& command, bool sector, std::chrono::seconds limit) {
  constexpr std::uint16_t kReadyRequired = 0x01;
  constexpr std::uint16_t kDataIn = 0x02;
  Buffer request(kAtaHeadSize + (sector ? kAtaSectorSize : 0));
  PutLittleEndian(request, 0, static_cast<std::uint16_t>(kAtaHeadSize));
  // CHECK POWER MODE and the like ask a drive that may not be ready; only what reads it waits for that.
  PutLittleEndian(request, 2, static_cast<std::uint16_t>(sector ? kReadyRequired | kDataIn : 0));
  PutWord(request, kAtaDataLength, sector ? Size(kAtaSectorSize) : 0);
  PutWord(request, 12, static_cast<std::uint32_t>(limit.count()));
  PutLittleEndian(request, kAtaDataOffset, static_cast<std::uint64_t>(sector ? kAtaHeadSize : 0));
  PutRegisters(request, kAtaTaskFile, command);
  return request;
}

AtaReply DecodeAtaReply(Bytes answer, bool sector) {
  if (answer.size() < kAtaHeadSize) return {kInvalidData};
  AtaReply reply{{}, Registers(answer, kAtaTaskFile)};
  reply.answer = AtaOutcome(*reply.registers);
  if (reply.answer.result != DriveResult::kDone || !sector) return reply;
  const std::uint64_t offset = LittleEndianAt<std::uint64_t>(answer, kAtaDataOffset);
  const auto data = Part(answer, offset, kAtaSectorSize);
  const bool whole = offset >= kAtaHeadSize && Word(answer, kAtaDataLength) >= kAtaSectorSize;
  reply.answer = whole && data ? Done(*data) : kInvalidData;
  return reply;
}

Buffer SmartRequest(const AtaRegisters& command) {
  Buffer request(kSmartInSize);
  PutWord(request, 0, Size(kAtaSectorSize));
  PutRegisters(request, kSmartRegisters, command);
  constexpr std::uint8_t kObsoleteBits = 0xA0;  // of the device register, which old drivers look at
  request[kSmartRegisters + 5] |= kObsoleteBits;
  return request;
}

DriveAnswer DecodeSmartReply(Bytes answer) {
  // DRIVERSTATUS.
  constexpr std::uint8_t kDriveError = 1;
  if (answer.size() < kSmartHeadSize) return kInvalidData;
  const std::uint8_t driver_error = answer[4];
  // The drive's error register comes without its status register, in which it set the error bit then.
  if (driver_error == kDriveError) return AtaOutcome({.features = answer[5], .command = 0x01});
  if (driver_error != 0) return {DriveResult::kNotSupported, driver_error};
  const auto data = Part(answer, kSmartHeadSize, kAtaSectorSize);
  return data ? Done(*data) : kInvalidData;
}

}  // namespace platform

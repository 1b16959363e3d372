#include "platform/storage_query.h"

#include <gtest/gtest.h>

#include <functional>

#include "platform/little_endian.h"

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Change = std::function<void(Bytes&)>;

Bytes Put(Bytes bytes, std::size_t at, std::uint32_t number) {
  PutLittleEndian(bytes, at, number);
  return bytes;
}

Bytes Counted(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(i % 251 + 1);
  return bytes;
}

Bytes operator+(Bytes head, const Bytes& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

Change Word(std::size_t at, std::uint32_t number) {
  return [=](Bytes& bytes) { bytes = Put(std::move(bytes), at, number); };
}
Change First(std::size_t size) {
  return [=](Bytes& bytes) { bytes.resize(size); };
}

// A golden answer, changed in one thing.
struct Row {
  const char* what;
  Change change;
  DriveResult result;
  std::uint32_t error = 0;
};

void Expect(const Row& row, const DriveAnswer& answer, const Bytes& page) {
  SCOPED_TRACE(row.what);
  EXPECT_EQ(answer.result, row.result);
  EXPECT_EQ(answer.error, row.error);
  EXPECT_EQ(answer.bytes, row.result == DriveResult::kDone ? page : Bytes());
}

constexpr std::uint32_t kInvalidData = 13;
const Change kNothing = [](Bytes&) {};

TEST(StorageQueryTest, NvmePagesAreAskedForAndRead) {
  const Bytes request = NvmePageRequest(DrivePage::kNvmeSelfTestLog, NvmeScope::kController);
  Bytes asked(48 + 564);
  for (const auto& [at, number] :
       std::vector<std::pair<std::size_t, std::uint32_t>>{{0, 49}, {8, 3}, {12, 2}, {16, 0x06}, {24, 40}, {28, 564}})
    asked = Put(std::move(asked), at, number);
  EXPECT_EQ(request, asked);
  const Bytes identify = NvmePageRequest(DrivePage::kNvmeController, NvmeScope::kNamespace);
  EXPECT_EQ(Bytes(identify.begin(), identify.begin() + 20),
            (Bytes{50, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}));
  EXPECT_EQ(identify.size(), 48u + 4096);
  EXPECT_TRUE(NvmePageRequest(DrivePage::kAtaIdentify, NvmeScope::kController).empty());

  const Bytes page = Counted(512);
  const Bytes golden = Put(Put(Put(Put(Put(Bytes(48), 0, 48), 4, 48), 8, 3), 24, 40), 28, 512) + page;
  for (const Row& row : {
           Row{"golden", kNothing, DriveResult::kDone},
           Row{"more than the page", Word(28, 513), DriveResult::kDone},
           Row{"data further behind",
               [](Bytes& bytes) {
                 bytes = Put(std::move(bytes), 24, 44);
                 bytes.insert(bytes.begin() + 48, 4, 0xEE);
               },
               DriveResult::kDone},
           Row{"nothing", First(0), DriveResult::kFailed, kInvalidData},
           Row{"cut in its head", First(47), DriveResult::kFailed, kInvalidData},
           Row{"head alone", First(48), DriveResult::kFailed, kInvalidData},
           Row{"cut by a byte", First(48 + 511), DriveResult::kFailed, kInvalidData},
           Row{"another version", Word(0, 40), DriveResult::kFailed, kInvalidData},
           Row{"another size", Word(4, 560), DriveResult::kFailed, kInvalidData},
           Row{"another protocol", Word(8, 2), DriveResult::kFailed, kInvalidData},
           Row{"less than the page", Word(28, 511), DriveResult::kFailed, kInvalidData},
           Row{"data in its own head", Word(24, 39), DriveResult::kFailed, kInvalidData},
           Row{"data from the buffer's begin", Word(24, 48), DriveResult::kFailed, kInvalidData},
           Row{"data far outside", Word(24, 0xFFFFFFF8), DriveResult::kFailed, kInvalidData},
       }) {
    Bytes answer = golden;
    row.change(answer);
    Expect(row, DecodeNvmePage(DrivePage::kNvmeHealth, answer), page);
  }
  EXPECT_EQ(DecodeNvmePage(DrivePage::kAtaIdentify, golden).result, DriveResult::kFailed);
}

TEST(StorageQueryTest, NvmeActionsSucceedByTheirStatus) {
  Bytes asked(80 + 64 + 64);
  for (const auto& [at, number] : std::vector<std::pair<std::size_t, std::uint32_t>>{{0, 1},
                                                                                     {4, 84},
                                                                                     {8, 3},
                                                                                     {12, 0x80000000},
                                                                                     {24, 64},
                                                                                     {28, 64},
                                                                                     {40, 10},
                                                                                     {44, 144},
                                                                                     {56, 1},
                                                                                     {80, 0x14},
                                                                                     {84, 0xFFFFFFFF},
                                                                                     {120, 1}})
    asked = Put(std::move(asked), at, number);
  EXPECT_EQ(NvmeActionRequest(DriveAction::kNvmeStartShortSelfTest, std::chrono::seconds(10)), asked);
  EXPECT_TRUE(NvmeActionRequest(DriveAction::kAtaAbortSelfTest, std::chrono::seconds(10)).empty());

  // A test runs already: status 11Dh, above the phase bit of the error's entry.
  const Bytes refused = Put(Put(Put(asked, 16, 2), 20, 77), 144 + 12, 0x11D << 1 | 1);
  for (const Row& row : {
           Row{"in progress", kNothing, DriveResult::kRefused, 0x11D},
           Row{"done", Word(16, 1), DriveResult::kDone},
           Row{"an opcode that it does not have", Word(144 + 12, 1 << 1), DriveResult::kNotSupported, 1},
           Row{"no entry", Word(28, 0), DriveResult::kRefused, 77},
           Row{"entry without a status", Word(144 + 12, 1), DriveResult::kRefused, 77},
           Row{"entry outside", Word(44, 145), DriveResult::kRefused, 77},
           Row{"entry far outside", Word(44, 0xFFFFFFFF), DriveResult::kRefused, 77},
           Row{"pending", Word(16, 0), DriveResult::kFailed, 31},
           Row{"not valid", Word(16, 3), DriveResult::kNotSupported, 77},
           Row{"gone", Word(16, 4), DriveResult::kGone, 77},
           Row{"busy", Word(16, 5), DriveResult::kFailed, 170},
           Row{"out of resources", Word(16, 7), DriveResult::kFailed, 31},
           Row{"not supported", Word(16, 0xFF), DriveResult::kNotSupported, 77},
           Row{"without its command", First(80), DriveResult::kRefused, 77},
           Row{"cut", First(79), DriveResult::kFailed, kInvalidData},
       }) {
    Bytes answer = refused;
    row.change(answer);
    Expect(row, DecodeNvmeAction(answer), {});
  }
}

TEST(StorageQueryTest, AtaCommandsSucceedByTheirRegisters) {
  const AtaRegisters command{1, 2, 3, 4, 5, 6, 7};
  Bytes asked(48 + 512);
  for (const auto& [at, number] : std::vector<std::pair<std::size_t, std::uint32_t>>{
           {0, 0x00030030}, {8, 512}, {12, 9}, {24, 48}, {40, 0x04030201}, {44, 0x00070605}})
    asked = Put(std::move(asked), at, number);
  EXPECT_EQ(AtaRequest(command, true, std::chrono::seconds(9)), asked);
  const Bytes bare = AtaRequest(command, false, std::chrono::seconds(9));
  EXPECT_EQ(bare, Put(Put(Put(Bytes(asked.begin(), asked.begin() + 48), 0, 48), 8, 0), 24, 0));

  const Bytes page = Counted(512);
  Bytes head(asked.begin(), asked.begin() + 48);
  head[46] = 0x50;
  const Bytes golden = head + page;
  const auto registers = [](std::uint8_t error, std::uint8_t status) -> Change {
    return [=](Bytes& bytes) {
      bytes[40] = error;
      bytes[46] = status;
    };
  };
  for (const Row& row : {
           Row{"golden", kNothing, DriveResult::kDone},
           Row{"aborted", registers(0x04, 0x51), DriveResult::kNotSupported, 0x5104},
           Row{"cannot be read", registers(0x40, 0x51), DriveResult::kRefused, 0x5140},
           Row{"registers alone", First(48), DriveResult::kFailed, kInvalidData},
           Row{"cut in its registers", First(47), DriveResult::kFailed, kInvalidData},
           Row{"cut by a byte", First(48 + 511), DriveResult::kFailed, kInvalidData},
           Row{"less than a sector", Word(8, 511), DriveResult::kFailed, kInvalidData},
           Row{"sector in the registers", Word(24, 47), DriveResult::kFailed, kInvalidData},
           Row{"sector outside", Word(24, 49), DriveResult::kFailed, kInvalidData},
           Row{"sector far outside", Word(28, 0xFFFFFFFF), DriveResult::kFailed, kInvalidData},
       }) {
    Bytes answer = golden;
    row.change(answer);
    Expect(row, DecodeAtaReply(answer, true).answer, page);
  }
  EXPECT_EQ(DecodeAtaReply(head, false).registers, (AtaRegisters{1, 2, 3, 4, 5, 6, 0x50}));
  EXPECT_FALSE(DecodeAtaReply(Bytes(47), false).registers);
}

TEST(StorageQueryTest, TheOlderSmartCodeSucceedsByItsDriversStatus) {
  Bytes asked = Put(Put(Put(Bytes(33), 0, 512), 4, 0x04030201), 8, 0x0007A605);
  EXPECT_EQ(SmartRequest({1, 2, 3, 4, 5, 6, 7}), asked);
  const Bytes page = Counted(512);
  const Bytes golden = Put(Bytes(16), 0, 512) + page;
  for (const Row& row : {
           Row{"golden", kNothing, DriveResult::kDone},
           Row{"the drive aborted", Word(4, 0x0401), DriveResult::kNotSupported, 0x0104},
           Row{"the drive cannot read", Word(4, 0x4001), DriveResult::kRefused, 0x0140},
           Row{"the driver does not know it", Word(4, 9), DriveResult::kNotSupported, 9},
           Row{"cut in its head", First(15), DriveResult::kFailed, kInvalidData},
           Row{"cut by a byte", First(527), DriveResult::kFailed, kInvalidData},
       }) {
    Bytes answer = golden;
    row.change(answer);
    Expect(row, DecodeSmartReply(answer), page);
  }
}

TEST(StorageQueryTest, FailuresMeanWhatDriversMeanByThem) {
  for (const auto& [error, result] : std::vector<std::pair<std::uint32_t, DriveResult>>{
           {1, DriveResult::kNotSupported},
           {50, DriveResult::kNotSupported},
           {87, DriveResult::kNotSupported},
           {1117, DriveResult::kNotSupported},
           {5, DriveResult::kNoRight},
           {1314, DriveResult::kNoRight},
           {2, DriveResult::kGone},
           {55, DriveResult::kGone},
           {433, DriveResult::kGone},
           {1167, DriveResult::kGone},
           {121, DriveResult::kTimedOut},
           {1460, DriveResult::kTimedOut},
           {21, DriveResult::kFailed},
           {1112, DriveResult::kFailed},
       }) {
    const DriveAnswer answer = WindowsDriveFailure(error);
    EXPECT_EQ(answer.result, result) << error;
    EXPECT_EQ(answer.error, error);
  }
}

}  // namespace
}  // namespace platform

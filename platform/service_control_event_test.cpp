#include "platform/service_control_event.h"

#include <gtest/gtest.h>

#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Setting(Bytes guid, Bytes rest) {
  guid.insert(guid.end(), rest.begin(), rest.end());
  return guid;
}
// As `{5d3e9a59-e9d5-4b00-a6bd-ff34ff516548}` and `{a7ad8041-b45a-4cae-87a3-eecbb468a9e1}` lie in memory.
Bytes Source(Bytes rest) {
  return Setting({0x59, 0x9A, 0x3E, 0x5D, 0xD5, 0xE9, 0, 0x4B, 0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48}, rest);
}
Bytes Percent(Bytes rest) {
  return Setting({0x41, 0x80, 0xAD, 0xA7, 0x5A, 0xB4, 0xAE, 0x4C, 0x87, 0xA3, 0xEE, 0xCB, 0xB4, 0x68, 0xA9, 0xE1},
                 rest);
}

TEST(ServiceControlEventTest, EachControlMeansItsEventOrNone) {
  using Expected = std::optional<SystemEvent>;
  const auto session = [](SessionChangeKind kind) { return SystemEvent(SessionChange{kind, 0x01020304}); };
  const Bytes of_session = {8, 0, 0, 0, 4, 3, 2, 1};
  const auto device = [](std::uint8_t size, std::uint8_t kind, std::uint8_t guid_begin) {
    Bytes bytes = {size, 0, 0, 0, kind, 0, 0, 0, 0, 0, 0, 0};  // of {53f56307-b6bf-11d0-94f2-00a0c91efb8b}
    for (const int byte : {guid_begin + 0, 0x63, 0xF5, 0x53, 0xBF, 0xB6,     0xD0, 0x11, 0x94, 0xF2, 0,
                           0xA0,           0xC9, 0x1E, 0xFB, 0x8B, int{'x'}, 0,    0,    0})
      bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
  };
  const Bytes disk = device(32, 5, 7);
  struct Row {
    unsigned long control, type;
    Bytes data;
    Expected event;
  };
  for (const Row& row : {
           Row{13, 0x8013, Source({4, 0, 0, 0, 0, 0, 0, 0}), PowerSource::kAc},
           Row{13, 0x8013, Source({4, 0, 0, 0, 1, 0, 0, 0}), PowerSource::kBattery},
           Row{13, 0x8013, Source({1, 0, 0, 0, 2}), PowerSource::kShortTerm},
           Row{13, 0x8013, Source({4, 0, 0, 0, 3, 0, 0, 0}), {}},
           Row{13, 0x8013, Percent({4, 0, 0, 0, 0, 0, 0, 0}), BatteryPercent{0}},
           Row{13, 0x8013, Percent({4, 0, 0, 0, 100, 0, 0, 0}), BatteryPercent{100}},
           Row{13, 0x8013, Percent({4, 0, 0, 0, 101, 0, 0, 0}), {}},
           Row{13, 0x8013, Percent({0, 0, 0, 0, 50}), {}},              // states no data
           Row{13, 0x8013, Percent({5, 0, 0, 0, 50, 0, 0, 0}), {}},     // states more than there is
           Row{13, 0x8013, Percent({1, 0, 0, 0x80, 50, 0, 0, 0}), {}},  // far more
           Row{13, 0x8013, Percent({4, 0, 0}), {}},                     // cut in its header
           Row{13, 0x8013, Setting(Bytes(16, 7), {1, 0, 0, 0, 1}), {}},
           Row{13, 0x8013, {}, {}},
           Row{13, 0x04, {}, SleepChange::kSuspend},
           Row{13, 0x12, {}, SleepChange::kResume},
           Row{13, 0x07, {}, {}},  // the second code of one resume
           Row{13, 0x0A, {}, {}},
           Row{14, 1, of_session, session(SessionChangeKind::kConsoleConnect)},
           Row{14, 3, of_session, session(SessionChangeKind::kRemoteConnect)},
           Row{14, 2, of_session, session(SessionChangeKind::kConsoleDisconnect)},
           Row{14, 4, of_session, session(SessionChangeKind::kRemoteDisconnect)},
           Row{14, 7, of_session, {}},  // locked
           Row{14, 5, of_session, session(SessionChangeKind::kLogon)},
           Row{14, 6, of_session, session(SessionChangeKind::kLogoff)},
           Row{14, 5, {8, 0, 0, 0, 4, 3, 2}, {}},
           Row{14, 5, {7, 0, 0, 0, 4, 3, 2, 1}, {}},
           Row{14, 5, {}, {}},
           Row{11, 0x8000, disk, DriveChange::kAttached},
           Row{11, 0x8004, disk, DriveChange::kDetached},
           Row{11, 0x8001, disk, {}},  // only asked whether it may go
           Row{11, 0x8000, Bytes(disk.begin(), disk.end() - 4), {}},
           Row{11, 0x8000, Bytes(disk.begin(), disk.begin() + 11), {}},
           Row{11, 0x8000, device(27, 5, 7), {}},  // ends before its class does
           Row{11, 0x8000, device(33, 5, 7), {}},
           Row{11, 0x8000, device(32, 6, 7), {}},  // a handle's
           Row{11, 0x8000, device(32, 5, 8), {}},  // another class
           Row{11, 0x8000, {}, {}},
           Row{1, 0x04, {}, {}},
           Row{12, 5, of_session, {}},
       }) {
    SCOPED_TRACE(testing::Message() << row.control << " " << row.type << " " << testing::PrintToString(row.data));
    EXPECT_EQ(DecodeServiceControl(row.control, row.type, std::span(row.data)), row.event);
    // What the handler has is a pointer; rows that lie about their length are none that the system hands over.
    const void* const data = row.data.data();
    if (row.event.has_value()) {
      EXPECT_EQ(DecodeServiceControl(row.control, row.type, data), row.event);
    }
  }
  EXPECT_EQ(DecodeServiceControl(13, 0x8013, static_cast<const void*>(nullptr)), Expected());
}

}  // namespace
}  // namespace platform

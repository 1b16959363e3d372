// The volumes with the errors that the log has of them; a library beside this program stands in for the log.
#include "platform/volumes.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/event_log_reader.h"
#include "platform/local.h"
#include "platform/windows/file_system_errors.h"

namespace platform::windows {
namespace {

TEST(VolumesWindowsTest, AVolumeHasTheErrorsThatTheLogHasOfIt) {
  const std::unique_ptr<Runtime> runtime = MakeRealRuntime({});
  const std::unique_ptr<Machine> machine = OpenLocalMachine({}, runtime->clock());
  const std::vector<Volume> volumes = machine->volumes().List();
  const auto system = std::find_if(volumes.begin(), volumes.end(),
                                   [](const Volume& volume) { return volume.role == VolumeRole::kSystem; });
  ASSERT_NE(system, volumes.end());
  EXPECT_EQ(system->file_system, "NTFS");
  EXPECT_EQ(system->errors, 1u);
}

/// Answers the one query that is asked of it.
class LogOfErrors final : public EventLog {
 public:
  explicit LogOfErrors(EventLogReading reading) : reading_(std::move(reading)) {}
  EventLogReading Query(const EventLogQuery& query) override {
    EXPECT_EQ(query.channel, "System");
    EXPECT_NE(query.xpath.find("@Name='Ntfs'"), query.xpath.npos);
    EXPECT_NE(query.xpath.find("<= 3600000]"), query.xpath.npos) << "of this run of the system";
    return reading_;
  }
  EventLogReaderOpening OpenReader(Runtime&, const EventLogReaderSettings&) override { return {}; }
  EventLogStatus ReadStatus(const std::string&) override { return {}; }

 private:
  const EventLogReading reading_;
};

TEST(FileSystemErrorsTest, CountsTheEventsOfTheVolume) {
  const auto event = [](const std::string& values) { return EventLogRecord{{}, "<Event>" + values + "</Event>"}; };
  const std::string third = R"(<Data Name='DeviceName'>\Device\HarddiskVolume3</Data>)";
  LogOfErrors log({{event("<Data Name='DriveName'>C:</Data>" + third), event("<Data></Data>" + third),
                    event(R"(<Data>C:\mnt</Data>)"), event("<Data>C:</Data>"),
                    event(R"(<Data>C:</Data><Data>\Device\HarddiskVolume31</Data>)"), event("")}});
  const FileSystemErrors errors(log, std::chrono::hours(1));
  const auto count = [&](const std::string& device, const std::vector<std::string>& names) {
    return errors.Of(device, names);
  };
  EXPECT_EQ(count(R"(\Device\HarddiskVolume3)", {R"(\\?\Volume{1})", "C:"}), 3u);
  EXPECT_EQ(count(R"(\Device\HarddiskVolume4)", {"C:"}), 1u) << "what was C: before is another volume";
  EXPECT_EQ(count("", {R"(C:\mnt)"}), 1u);
  EXPECT_EQ(count("", {"E:"}), 0u);
  LogOfErrors none({{event("<Data>C:</Data>")}, EventLogFailure::kQuery, 5});
  EXPECT_EQ(FileSystemErrors(none, std::chrono::hours(1)).Of("", std::vector<std::string>{"C:"}), std::nullopt)
      << "not known is not none";
}

}  // namespace
}  // namespace platform::windows

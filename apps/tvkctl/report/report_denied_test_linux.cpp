#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>

#include "apps/tvkctl/report/report_command.h"
#include "client/store/event_data_logging.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

// An account without rights; who runs the test as root becomes one for a while.
class Nobody {
 public:
  Nobody() {
    if (was_ == 0) {
      EXPECT_EQ(seteuid(65534), 0);
    }
  }
  ~Nobody() { EXPECT_EQ(seteuid(was_), 0); }

 private:
  const uid_t was_ = geteuid();
};

TEST(DeniedReport, IsAskedOfTheService) {
  const TempFolder folder;
  platform::VirtualRuntime world;
  const std::filesystem::path file = folder.path() / TVK::kStoreFileName;
  TVK::EventDataLogging({.file = file, .limits = {}}, world.clock());
  std::filesystem::permissions(file, std::filesystem::perms::none);
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  bool told = false;
  ReportOptions options;
  options.data_dir = folder.path();
  options.ask_service = [&](std::optional<std::int64_t> since, TVK::Report& report, Standing& standing,
                            std::string& problem) {
    EXPECT_FALSE(since.has_value());
    report.records = 17;
    standing.scope = "full";
    problem = "not for you";
    return told;
  };
  std::ostringstream out;
  std::ostringstream errors;
  const Nobody nobody;
  EXPECT_EQ(RunReport(options, world, out, errors), 3);
  EXPECT_EQ(out.str(), "");
  EXPECT_NE(errors.str().find("not for you"), std::string::npos) << errors.str();
  told = true;
  EXPECT_EQ(RunReport(options, world, out, errors), 0) << errors.str();
  EXPECT_NE(out.str().find("17 records"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("scope \"full\""), std::string::npos);
}

TEST(DeniedReport, SaysWhyAPageCannotBePutIntoAClosedFolder) {
  const TempFolder folder;
  platform::VirtualRuntime world;
  const std::filesystem::path closed = folder.path() / "closed";
  std::filesystem::create_directory(closed);
  std::filesystem::permissions(closed, std::filesystem::perms::none);
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  ReportOptions options;
  options.data_dir = folder.path();
  options.html_file = closed / "x.html";
  std::ostringstream out;
  std::ostringstream errors;
  {
    const Nobody nobody;
    EXPECT_EQ(RunReport(options, world, out, errors), 3);
  }
  EXPECT_NE(errors.str().find("x.html: Permission denied"), std::string::npos) << errors.str();
}

}  // namespace
}  // namespace tvkctl

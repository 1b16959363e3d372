#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/local.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

class NamedEventFiles : public testing::Test {
 protected:
  mode_t ModeOf(const char* file) const {
    struct stat status {};
    EXPECT_EQ(::stat((folder_ / file).c_str(), &status), 0) << file;
    return status.st_mode;
  }

  const TempFolder temp_;
  const std::filesystem::path folder_ = temp_.path();
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({folder_ / "events"});
};

TEST_F(NamedEventFiles, AccessIsWhatWasAskedForWhateverTheUmask) {
  const mode_t before = ::umask(077);
  const auto own = runtime_->MakeNamedEvent(L"own", EventReset::kAuto, false, EventAccess::kServiceOnly);
  const auto shared = runtime_->MakeNamedEvent(L"Global\\all", EventReset::kManual, false, EventAccess::kSessionUsers);
  ::umask(before);
  ASSERT_NE(own.event, nullptr) << own.error;
  ASSERT_NE(shared.event, nullptr) << shared.error;
  EXPECT_EQ(ModeOf("events"), mode_t{S_IFDIR | 0755});
  EXPECT_EQ(ModeOf("events/own"), mode_t{S_IFIFO | 0600});
  EXPECT_EQ(ModeOf("events/Global%5c.all"), mode_t{S_IFIFO | 0766}) << "with the mark of a manual-reset event";
}

TEST_F(NamedEventFiles, AnythingButAFifoAtItsPlaceIsAnError) {
  std::filesystem::create_directories(folder_ / "events" / "folder");
  std::ofstream(folder_ / "events" / "file") << "x";
  std::filesystem::create_symlink("file", folder_ / "events" / "link");
  for (const wchar_t* name : {L"folder", L"file", L"link", L""}) {
    const auto made = runtime_->MakeNamedEvent(name, EventReset::kAuto, true, EventAccess::kServiceOnly);
    EXPECT_EQ(made.event, nullptr) << name;
    EXPECT_NE(made.error, 0u) << name;
  }
  EXPECT_EQ(std::filesystem::file_size(folder_ / "events" / "file"), 1u);
  // One that another account planted in a folder that is open to it.
  ASSERT_EQ(::mkfifo((folder_ / "events" / "planted").c_str(), 0600), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown((folder_ / "events" / "planted").c_str(), 65534, 65534), 0);
    EXPECT_EQ(runtime_->MakeNamedEvent(L"planted", EventReset::kAuto, true, EventAccess::kServiceOnly).error,
              kErrorForeignOwner);
  }
  EXPECT_EQ(runtime_->OpenNamedEvent(L"absent").error, std::uint32_t{ENOENT});
}

}  // namespace
}  // namespace platform

// Files of a recorded computer, edited while they are watched.
#include <gtest/gtest.h>

#include "host/device_context_event_monitor.h"
#include "platform/local.h"
#include "testing/log_capture.h"
#include "testing/recorded_tree.h"

namespace {

constexpr wchar_t kRaised[] = L"Setting event on region change";

class RegionChangeLinuxTest : public testing::Test {
 protected:
  // As editors and localectl do: a new file that takes the old one's name.
  void Replace(const std::string& inner, const std::string& content) {
    tree_.Write(inner + ".new", content);
    const std::filesystem::path file = tree_.root() / std::filesystem::path(inner).relative_path();
    std::filesystem::rename(file.string() + ".new", file);
  }

  // Waits until the log holds `count` lines with `text`.
  bool Logged(const std::wstring& text, std::size_t count) {
    const platform::SteadyTime latest = runtime_->clock().Steady() + std::chrono::seconds(20);
    while (log_.Count(text) < count && runtime_->clock().Steady() < latest)
      runtime_->Wait(*never_, std::chrono::milliseconds(5));
    return log_.Count(text) >= count;
  }

  LogCapture log_;
  platform::RecordedTree tree_{{"/etc/default/locale", "LANG=de_DE.UTF-8\n"},
                               {"/usr/lib/os-release", "NAME=Distribution\nVERSION_ID=1\n"}};
  TempFolder events_;
  std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({.named_event_folder = events_.path()});
  std::unique_ptr<platform::Event> never_ = runtime_->MakeEvent(platform::EventReset::kManual);
  std::unique_ptr<platform::Machine> machine_ =
      platform::OpenLocalMachine({.sysroot = tree_.root()}, runtime_->clock());
  MachineInformation information_{*machine_, runtime_->clock()};
  DeviceContextEventMonitor monitor_{*runtime_, *machine_, information_};
};

TEST_F(RegionChangeLinuxTest, FilesThatAreReplacedRaiseTheEventWhenTheirFactsChange) {
  monitor_.Start();
  ASSERT_TRUE(monitor_.IsReady());
  Replace("/etc/default/locale", "LANG=en_YY.UTF-8\n");
  ASSERT_TRUE(Logged(L"new keyValue en-YY", 1)) << "no nation of this world";
  Replace("/etc/default/locale", "LANG=en_DE.UTF-8\n");
  ASSERT_TRUE(Logged(kRaised, 2)) << "the nation, back from what cannot be, and the locale";
  Replace("/usr/lib/os-release", "NAME=Distribution\nVERSION_ID=2\n");
  ASSERT_TRUE(Logged(kRaised, 3));
  Replace("/etc/os-release", "NAME=Derivative\nVERSION_ID=2\n");
  ASSERT_TRUE(Logged(kRaised, 4));
  monitor_.Stop();
  EXPECT_EQ(log_.Count(kRaised), 4u) << "nothing for facts that are equal or cannot be";
}

}  // namespace

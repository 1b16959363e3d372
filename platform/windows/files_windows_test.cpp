#include "platform/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/windows/owner.h"
#include "testing/child_process.h"
#include "testing/temp_folder.h"

namespace platform::windows {
namespace {

TEST(FilesWindows, AFileThatIsBeingReadIsReplacedOnceTheReaderLetsGo) {
  const TempFolder temp;
  const std::filesystem::path file = temp.path() / "policy.json";
  ASSERT_EQ(ReplaceFile(file, "old"), "");
  UniqueFile reader(CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(reader);
  std::string problem = "not done";
  std::atomic<bool> done = false;
  std::thread writer([&] {
    problem = ReplaceFile(file, "new");
    done = true;
  });
  // The temporary file stays while the writer is patient; where the reader is not in the way, it is done at once.
  int looks = 0;
  EXPECT_TRUE(WaitForState(
      [&] {
        const auto files = std::distance(std::filesystem::directory_iterator(temp.path()), {});
        looks = files == 2 ? looks + 1 : 0;
        return done || looks == 2;
      },
      std::chrono::seconds(20)));
  reader.Reset();
  writer.join();
  EXPECT_EQ(problem, "");
  EXPECT_EQ(ReadWholeFile(file, 10), "new");
}

}  // namespace
}  // namespace platform::windows

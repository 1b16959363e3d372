// Deleting for good, killed at every step: the next start of the service completes it, or nothing was begun.
#include <gtest/gtest.h>

#include <iostream>

#include "platform/files.h"
#include "tests/attack/attack_world.h"

namespace {

// What the records say of the processor, and in the files below what was set aside and logged.
constexpr char kSecret[] = "Recorded";

// How many files of the data folder and its logs hold the secret.
int FilesWithSecret(const std::filesystem::path& folder) {
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const std::string bytes = platform::ReadWholeFile(entry.path(), 64u << 20).value_or("");
    if (bytes.find(kSecret) != bytes.npos) ++files;
  }
  return files;
}

TEST(EraseAttack, KilledAtEveryStep) {
  Target lived;
  lived.Live(500);
  std::size_t rounds = 0;
  std::size_t undone = 0;
  std::size_t half_done = 0;
  for (const char* const call : {"write", "sync", "truncate", "rename", "remove"}) {
    for (int n = 1;; ++n) {
      Target target;
      const std::filesystem::path data = target.folder().data();
      target.TakeOver(lived);
      std::filesystem::create_directories(data / "log");
      for (const char* const name : {"records.db.corrupt-20260101T000000", "policy.last-good.json",
                                     "log/EventManager.1.log", "log/Datasets.log"})
        ASSERT_EQ(platform::ReplaceFile(data / name, kSecret), "");
      const int before = FilesWithSecret(data);
      ASSERT_GE(before, 5);
      std::vector<std::string> lines;
      const int code = RunToEnd("tvkctl", {"erase", "--all", "--yes", "--data-dir", data.string()},
                                ShimFor(target, std::string(call) + ":kill:" + std::to_string(n), ""), lines);
      const bool reached = std::filesystem::exists(data.parent_path() / "reached");
      // Under this policy nothing is written of the processor again.
      target.folder().WritePolicy(R"({"telemetryScope": "none", "datasets": []})");
      target.Live(300);
      const int after = FilesWithSecret(data);
      const bool begun = after < before - 1;  // a start without an erasure replaces the copy of the policy, too
      if (!begun) ++undone;
      if ((begun && after > 0) || std::filesystem::exists(data / "erasure.json")) {
        ++half_done;
        std::cout << "half done: " << call << ' ' << n << ", " << after << " files of " << before << '\n';
      }
      if (reached) {
        ++rounds;
        continue;
      }
      EXPECT_GT(n, 1) << "no such call was made: " << call;
      EXPECT_EQ(code, 0) << testing::PrintToString(lines);
      EXPECT_EQ(after, 0);
      break;
    }
  }
  std::cout << "attack  erasure killed at the n-th call: " << rounds << " rounds, half done " << half_done
            << " (0), not begun " << undone << " (those before its intention stood on the disk)" << std::endl;
  EXPECT_EQ(half_done, 0u);
  EXPECT_LT(undone, rounds / 2);
}

}  // namespace

// Deleting for good, killed at every step: the next start of the service completes it, or nothing was begun.
#include <gtest/gtest.h>

#include <functional>
#include <iostream>

#include "platform/files.h"
#include "tests/attack/attack_world.h"

namespace {

// What the records say of the processor, and in the files below what was set aside and logged.
constexpr char kSecret[] = "Recorded";

constexpr char kNone[] = R"({"telemetryScope": "none", "datasets": []})";

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

// Erases what is below the folder, in a process that the shim kills; what tvkctl ended with.
using EraseUnderFire = std::function<int(Target& target, const Variables& shim)>;

void KillAtEveryStep(const std::string& campaign, const EraseUnderFire& erase) {
  Target lived;
  lived.Live(500);
  std::size_t rounds = 0;
  std::size_t undone = 0;
  std::size_t half_done = 0;
  for (const char* const call : {"write", "sync", "truncate", "rename", "remove"}) {
    for (int n = 1;; ++n) {
      SCOPED_TRACE(call + std::to_string(n));
      Target target;
      const std::filesystem::path data = target.folder().data();
      target.TakeOver(lived);
      std::filesystem::create_directories(data / "log");
      for (const char* const name : {"records.db.corrupt-20260101T000000", "policy.last-good.json",
                                     "log/EventManager.1.log", "log/Datasets.log"})
        ASSERT_EQ(platform::ReplaceFile(data / name, kSecret), "");
      const int before = FilesWithSecret(data);
      ASSERT_GE(before, 5);
      const int code = erase(target, ShimFor(target, std::string(call) + ":kill:" + std::to_string(n), ""));
      if (testing::Test::HasFatalFailure()) return;
      const bool reached = std::filesystem::exists(data.parent_path() / "reached");
      // Under this policy nothing is written of the processor again.
      target.folder().WritePolicy(kNone);
      target.Live(300);
      const int after = FilesWithSecret(data);
      const bool begun = after < before - 1;  // a start without an erasure replaces the copy of the policy, too
      if (!begun) ++undone;
      if (((begun || code == 0) && after > 0) || std::filesystem::exists(data / "erasure.json")) {
        ++half_done;
        std::cout << "half done: " << call << ' ' << n << ", " << after << " files of " << before << '\n';
      }
      if (reached) {
        ++rounds;
        continue;
      }
      EXPECT_GT(n, 1) << "no such call was made: " << call;
      EXPECT_EQ(code, 0);
      EXPECT_EQ(after, 0);
      break;
    }
  }
  std::cout << "attack  " << campaign << " killed at the n-th call: " << rounds << " rounds, half done " << half_done
            << " (0), not begun " << undone << " (those before its intention stood on the disk)" << std::endl;
  EXPECT_EQ(half_done, 0u);
  EXPECT_LT(undone, rounds / 2);
}

TEST(EraseAttack, KilledAtEveryStep) {
  KillAtEveryStep("erasure", [](const Target& target, const Variables& shim) {
    std::vector<std::string> lines;
    return RunToEnd("tvkctl", {"erase", "--all", "--yes", "--data-dir", target.folder().data().string()}, shim, lines);
  });
}

TEST(EraseAttack, TheServiceThatErasesIsKilledAtEveryStep) {
  KillAtEveryStep("service that erases", [](Target& target, Variables shim) {
    const std::filesystem::path data = target.folder().data();
    const std::filesystem::path from = data.parent_path() / "asked";
    shim.emplace_back("TVK_FAULT_FROM", from.string());
    ChildProcess service("/usr/bin/env", WordsFor("TVKClientService", target.Life(60'000), shim));
    EXPECT_TRUE(service.WaitForLine("CPUEvent", kPatience));
    // What goes on being written would be written of the processor again.
    target.folder().WritePolicy(kNone);
    EXPECT_TRUE(service.WaitForLine("policy.json: is in force now", kPatience));
    EXPECT_EQ(platform::ReplaceFile(from, ""), "");
    std::vector<std::string> lines;
    const int code = RunToEnd("tvkctl", {"erase", "--all", "--yes", "--data-dir", data.string()}, {}, lines);
    service.Ask(ChildRequest::kKill);
    EXPECT_TRUE(service.WaitForEnd(kPatience).has_value());
    return code;
  });
}

}  // namespace

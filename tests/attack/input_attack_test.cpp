// The service's other inputs under attack: the policy changes faster than anybody can follow, the machine tells
// nonsense.
#include <gtest/gtest.h>

#include <iostream>
#include <random>

#include "platform/local.h"
#include "tests/attack/attack_world.h"

namespace {

TEST(PolicyAttack, ManyEditsAMinute) {
  constexpr std::uint64_t kEditsAMinute = 2000;
  const std::uint64_t edits = Asked("TVK_ATTACK_EDITS", 600);
  Target target;
  const auto runtime = platform::MakeRealRuntime({});
  const auto never = runtime->MakeEvent(platform::EventReset::kManual);
  const Load load;
  ChildProcess service(ProgramBeside("TVKClientService"), target.Life(600000));
  ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
  const char* const scopes[] = {"none", "full", "basic", "none", "enhance"};
  std::size_t at_none = 0;
  const platform::SteadyTime begin = runtime->clock().Steady();
  for (std::uint64_t edit = 0; edit < edits; ++edit) {
    target.folder().WritePolicy(CpuPolicy(scopes[edit % std::size(scopes)], R"("CPUPeakThreshold": "1")"));
    // By the clock, so that the time of writing does not count.
    runtime->WaitUntil(*never, begin + std::chrono::milliseconds((edit + 1) * 60000 / kEditsAMinute));
  }
  const std::chrono::duration<double, std::ratio<60>> minutes = runtime->clock().Steady() - begin;
  // Now and then it is left alone at "none": nothing may be written from then on.
  for (int round = 0; round < 5; ++round) {
    target.folder().WritePolicy(CpuPolicy("full", R"("CPUPeakThreshold": "1")"));
    const std::size_t seen = service.Lines().size();
    service.WaitFor([&] { return service.Lines().size() > seen + 2; }, std::chrono::seconds(3));
    const std::string removed = "StopAndRemoveFromList 9492447A-FCAC-428E-B7A8-7F7918199480 successfully!";
    const std::size_t changes = target.folder().CountInLog("EventManager.log", removed);
    target.folder().WritePolicy(CpuPolicy("none"));
    // A record that was admitted before is through then.
    ASSERT_TRUE(
        service.WaitFor([&] { return target.folder().CountInLog("EventManager.log", removed) > changes; }, kPatience));
    const auto records = [&] { return target.folder().Records({.dataset_name = L"CPUEvent"}).size(); };
    const std::size_t before = records();
    runtime->Wait(*never, std::chrono::milliseconds(1500));
    at_none += records() - before;
  }
  service.Ask(ChildRequest::kTerminate);
  ASSERT_EQ(service.WaitForEnd(kPatience), 0);
  target.NoteShown(service.Lines());
  const double a_minute = static_cast<double>(edits) / minutes.count();
  EXPECT_GE(a_minute, 0.95 * kEditsAMinute);
  std::cout << "attack  policy edits: " << edits << " edits, " << a_minute << " a minute (2000), records at \"none\" "
            << at_none << " (0)" << std::endl;
  EXPECT_EQ(at_none, 0u);
  Report("policy edits", edits, target.Look());
}

TEST(MachineAttack, HostileFiles) {
  std::mt19937 random(3);
  const std::uint64_t rounds = Asked("TVK_ATTACK_MACHINES", 100);
  constexpr const char* kFiles[] = {"/proc/stat",
                                    "/proc/cpuinfo",
                                    "/proc/meminfo",
                                    "/etc/os-release",
                                    "/etc/default/locale",
                                    "/etc/machine-id",
                                    "/sys/devices/system/cpu/online",
                                    "/sys/devices/system/cpu/cpu0/topology/core_id",
                                    "/sys/devices/system/cpu/cpu0/cache/index2/size",
                                    "/sys/firmware/dmi/tables/DMI",
                                    "/sys/firmware/dmi/tables/smbios_entry_point",
                                    "/sys/class/dmi/id/bios_date",
                                    "/sys/class/dmi/id/product_name",
                                    "/sys/class/power_supply/BAT0/uevent"};
  std::size_t failed = 0;
  Findings findings;
  for (std::uint64_t round = 0; round < rounds; ++round) {
    Target target;
    const platform::RecordedTree tree;
    for (const char* const file : kFiles) {
      std::string bytes(random() % 5 == 0 ? 0 : random() % 5000, ' ');
      for (char& byte : bytes)
        byte = random() % 3 == 0 ? "0123456789-:=\n ,_"[random() % 17] : static_cast<char>(random());
      tree.Write(file, bytes);
    }
    std::vector<std::string> arguments = target.folder().Arguments({"--for", "150ms", "--sysroot", tree.root()});
    arguments.insert(arguments.begin(), "--console");
    ChildProcess service(ProgramBeside("TVKClientService"), arguments);
    if (service.WaitForEnd(kPatience) != 0) ++failed;
    target.NoteShown(service.Lines());
    findings += target.Look();
  }
  EXPECT_EQ(failed, 0u);
  Report("hostile machines", rounds, findings);
}

// From what is just too little for the service to what is just enough: it ends with its own code or lives, and the
// store stays whole. Below that it is the loader, or the language's own library, that ends the process.
TEST(MemoryAttack, TooLittle) {
  constexpr int kLeast = 8'000;  // KiB, of addresses
  constexpr int kMost = 20'000;
  const int step = static_cast<int>(12'500 / Asked("TVK_ATTACK_MEMORIES", 50));
  std::size_t rounds = 0;
  std::size_t failed = 0;
  Findings findings;
  bool speaks = false;
  for (int limit = kLeast; limit <= kMost; limit += step) {
    Target target;
    std::vector<std::string> words = {"-c", "ulimit -s 200; ulimit -v " + std::to_string(limit) + R"(; exec "$0" "$@")",
                                      ProgramBeside("TVKClientService")};
    for (const std::string& word : target.Life(200))
      words.push_back(word);
    ChildProcess service("/bin/sh", words);
    const int code = service.WaitForEnd(kPatience).value_or(-1);
    speaks = speaks || code == 3;
    if (!speaks) continue;
    ++rounds;
    if (code != 0 && code != 3) ++failed;
    if (code != 0) continue;
    target.NoteShown(service.Lines());
    findings += target.Look();
  }
  EXPECT_TRUE(speaks);
  EXPECT_EQ(failed, 0u);
  std::cout << "attack  too little memory: ended otherwise than by its own code " << failed << " (0)" << std::endl;
  Report("too little memory", rounds, findings);
}

}  // namespace

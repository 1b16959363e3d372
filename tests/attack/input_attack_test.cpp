// The service's other inputs under attack: the policy changes faster than anybody can follow, the machine tells
// nonsense.
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <numeric>
#include <random>

#include "platform/ata_command.h"
#include "platform/drive_recording.h"
#include "platform/local.h"
#include "tests/attack/attack_world.h"

namespace {

// What the processor's dataset says each second under load.
std::string ChattyPolicy(const std::string& scope) {
  return CpuPolicy(scope, R"("CPUPeakThreshold": "1")");
}

std::size_t TimesRemoved(const Target& target) {
  return target.folder().CountInLog("EventManager.log",
                                    "StopAndRemoveFromList 9492447A-FCAC-428E-B7A8-7F7918199480 successfully!");
}

// Records that the processor's dataset writes in the time in which it would write some; it has been removed.
std::size_t RecordsFromNowOn(const Target& target) {
  const auto runtime = platform::MakeRealRuntime({});
  const auto never = runtime->MakeEvent(platform::EventReset::kManual);
  const auto records = [&] { return target.folder().Records({.dataset_name = L"CPUEvent"}).size(); };
  const std::size_t before = records();
  runtime->Wait(*never, std::chrono::milliseconds(1500));
  return records() - before;
}

// The scope becomes "none" while the policy cannot be read: that holds as soon as it can be again.
TEST(PolicyAttack, WithdrawnWhileItCannotBeRead) {
  const Load load;
  std::size_t rounds = 0;
  std::size_t at_none = 0;
  Findings findings;
  for (const char* const fault : {"open:EIO:0", "open:EMFILE:0", "read:EIO:0"}) {
    SCOPED_TRACE(fault);
    Target target;
    target.folder().WritePolicy(ChattyPolicy("full"));
    const Environment shim(ShimFor(target, fault, target.folder().policy().string()));
    ChildProcess service(ProgramBeside("TVKClientService"), target.Life(120000));
    ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
    std::ofstream(SwitchOf(target)).put('x');
    target.folder().WritePolicy(ChattyPolicy("none"));
    ASSERT_TRUE(service.WaitFor([&] { return Reached(target); }, kPatience));
    EXPECT_EQ(TimesRemoved(target), 0u);
    std::filesystem::remove(SwitchOf(target));
    ASSERT_TRUE(service.WaitFor([&] { return TimesRemoved(target) > 0; }, kPatience)) << "the withdrawal was missed";
    at_none += RecordsFromNowOn(target);
    service.Ask(ChildRequest::kTerminate);
    ASSERT_EQ(service.WaitForEnd(kPatience), 0);
    target.NoteShown(service.Lines());
    findings += target.Look();
    ++rounds;
  }
  std::cout << "attack  withdrawn while the policy cannot be read: records at \"none\" " << at_none << " (0)"
            << std::endl;
  EXPECT_EQ(at_none, 0u);
  Report("withdrawn while the policy cannot be read", rounds, findings);
}

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
    target.folder().WritePolicy(ChattyPolicy(scopes[edit % std::size(scopes)]));
    // By the clock, so that the time of writing does not count.
    runtime->WaitUntil(*never, begin + std::chrono::milliseconds((edit + 1) * 60000 / kEditsAMinute));
  }
  const std::chrono::duration<double, std::ratio<60>> minutes = runtime->clock().Steady() - begin;
  // Now and then it is left alone at "none": nothing may be written from then on.
  for (int round = 0; round < 5; ++round) {
    target.folder().WritePolicy(ChattyPolicy("full"));
    const std::size_t seen = service.Lines().size();
    service.WaitFor([&] { return service.Lines().size() > seen + 2; }, std::chrono::seconds(3));
    const std::size_t changes = TimesRemoved(target);
    target.folder().WritePolicy(CpuPolicy("none"));
    // A record that was admitted before is through then.
    ASSERT_TRUE(service.WaitFor([&] { return TimesRemoved(target) > changes; }, kPatience));
    at_none += RecordsFromNowOn(target);
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

// Everything that is told of drives.
constexpr char kDrivesPolicy[] = R"({"telemetryScope": "full", "datasets": [
  {"id": "2274532A-4EFB-40A9-8BD4-F6D4F4E4909F", "name": "StorageEvent", "settings": {"ReadUsageInterval": "1m"}},
  {"id": "3C3312C1-4E59-4106-91A2-8AA2B4852A90", "name": "PCIe_NVMe_SMARTEvent"},
  {"id": "2D5EF51C-A0CF-45C1-B58F-42AD5AA06E55", "name": "SATA_SSD_SMARTEvent"},
  {"id": "7FCA0753-1E6B-4B31-8630-28A84882F4D0", "name": "SMARTEvent"},
  {"id": "9492447A-FCAC-428E-B7A8-7F7918199480", "name": "CPUEvent"},
  {"id": "3267A6D2-D6FD-4C29-87E7-9BF83E459C29", "name": "MemoryEvent"}]})";

std::string HostileBytes(std::mt19937& random, std::size_t size) {
  std::string bytes(size, ' ');
  for (char& byte : bytes)
    byte = random() % 3 == 0 ? "0123456789-:=\n ,_"[random() % 17] : static_cast<char>(random());
  return bytes;
}

// A recorded drive whose description is sound but for one line, so that its pages are read. These are as long as they
// are to be, with a checksum, or of any length.
void WriteHostileDrive(const platform::RecordedTree& tree, std::mt19937& random, platform::DriveBus bus) {
  const std::string folder = std::string("/drives/") + std::string(platform::BusName(bus)) + "/";
  std::string text = platform::EncodeDriveText({.path = "/dev/" + HostileBytes(random, 5), .bus = bus});
  const char* const keys[] = {"model ", "serial ", "bytes ", "rotating ", "other "};
  text += keys[random() % std::size(keys)] + HostileBytes(random, random() % 5000);
  tree.Write(folder + platform::kDriveTextFile, text);
  for (const platform::DrivePage page : platform::PagesOf(bus)) {
    std::string bytes = HostileBytes(random, random() % 4 == 0 ? random() % 5000 : platform::PageSize(page));
    if (bytes.size() == platform::kAtaSectorSize) {
      if (page == platform::DrivePage::kAtaIdentify) bytes[1] = 0;  // no packet device
      bytes.back() = 0;
      bytes.back() = static_cast<char>(-std::accumulate(bytes.begin(), bytes.end(), 0));
    }
    tree.Write(folder + std::string(platform::PageFileName(page)), bytes);
  }
}

// A table of which some lines are sound, or nearly.
std::string HostileMounts(std::mt19937& random) {
  std::string table = HostileBytes(random, random() % 300);
  for (int line = 0; line < 20; ++line) {
    std::string mount = "36 35 8:" + std::to_string(line) + " / / rw - ext4 /dev/sda" + std::to_string(line) + " rw\n";
    if (random() % 2 == 0) mount[random() % mount.size()] = static_cast<char>(random());
    table += mount;
  }
  return table;
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
                                    "/sys/class/power_supply/BAT0/uevent",
                                    "/sys/block/sda/size",
                                    "/sys/fs/ext4/sda1/errors_count"};
  std::size_t failed = 0;
  std::size_t of_drives = 0;
  Findings findings;
  for (std::uint64_t round = 0; round < rounds; ++round) {
    Target target;
    const platform::RecordedTree tree;
    for (const char* const file : kFiles)
      tree.Write(file, HostileBytes(random, random() % 5 == 0 ? 0 : random() % 5000));
    target.folder().WritePolicy(kDrivesPolicy);
    for (const platform::DriveBus bus : {platform::DriveBus::kNvme, platform::DriveBus::kAta, platform::DriveBus::kUsb})
      WriteHostileDrive(tree, random, bus);
    tree.Write("/proc/self/mountinfo", HostileMounts(random));
    std::vector<std::string> arguments = target.folder().Arguments({"--for", "150ms", "--sysroot", tree.root()});
    arguments.insert(arguments.begin(), "--console");
    ChildProcess service(ProgramBeside("TVKClientService"), arguments);
    if (service.WaitForEnd(kPatience) != 0) ++failed;
    target.NoteShown(service.Lines());
    of_drives += CountLines(service.Lines(), "SMARTEvent");
    findings += target.Look();
  }
  EXPECT_EQ(failed, 0u);
  EXPECT_GT(of_drives, 0u) << "no page was looked at";
  std::cout << "attack  hostile machines: records of drives' health " << of_drives << " (some)" << std::endl;
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

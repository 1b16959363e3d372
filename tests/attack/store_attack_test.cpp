// The store under attack: the service is killed, its disk fails or is full, its file is damaged.
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>

#include "platform/files.h"
#include "tests/attack/attack_world.h"

namespace {

// What is wrong after a life from start to end. On a busy machine a short one may end before every dataset has begun.
Findings LookAfterALife(Target& target) {
  target.Live(300);
  const Findings findings = target.Look();
  if (findings.no_init == 0) return findings;
  target.Live(3000);
  return target.Look();
}

// Makes the version in the header of the store's file (SQLite file format, 1.3.14) absurd: SQLite itself finds nothing
// to mend in it, and leaves the changes beside it alone.
void DamageVersion(const Target& target) {
  const std::filesystem::path file = target.folder().data() / "records.db";
  std::string bytes = platform::ReadWholeFile(file, 64u << 20).value();
  bytes.replace(60, 4, 4, 'x');
  std::ofstream(file, std::ios::binary) << bytes;
}

TEST(StoreAttack, KilledAtEveryWriteFlushAndRename) {
  Findings findings;
  std::size_t rounds = 0;
  Target lived;
  lived.Live(300);
  struct Point {
    const char* files;
    const char* call;
  };
  // The store, and the copy of the last good policy, which is written under another name and renamed.
  for (const auto& [files, call] : {Point{"records.db", "write"},
                                    {"records.db", "sync"},
                                    {".policy.", "write"},
                                    {".policy.", "sync"},
                                    {"policy.", "rename"}}) {
    for (int n = 1;; ++n, ++rounds) {
      Target target;
      target.TakeOver(lived);
      target.SetRegion("AT");
      target.SetDevicePath("Moved");
      target.ChangePolicy();
      target.Live(300, ShimFor(target, std::string(call) + ":kill:" + std::to_string(n), files));
      findings += LookAfterALife(target);
      if (Reached(target)) continue;
      EXPECT_GT(n, 1) << "no such call was made: " << files << ' ' << call;
      break;
    }
  }
  Report("killed at the n-th call", rounds, findings);
}

TEST(StoreAttack, KilledAtAnyMoment) {
  std::mt19937 random(1);
  const std::uint64_t kills = Asked("TVK_ATTACK_KILLS", 100);
  Target target;
  target.Live(500);
  for (std::uint64_t round = 0; round < kills; ++round) {
    target.SetRegion(round % 2 == 0 ? "AT" : "DE");
    target.SetDevicePath("Path " + std::to_string(round));
    ChildProcess service(ProgramBeside("TVKClientService"), target.Life(5000));
    service.WaitForLine("never", std::chrono::milliseconds(random() % 250));
    service.Ask(ChildRequest::kKill);
    ASSERT_TRUE(service.WaitForEnd(kPatience).has_value());
    target.NoteShown(service.Lines());
  }
  Report("killed at any moment", kills, LookAfterALife(target));
}

// A damaged store goes aside once, with all its files, whatever moment of that the service is killed at.
TEST(StoreAttack, KilledWhileADamagedStoreIsSetAside) {
  Target lived;
  lived.Live(300);
  // A life that was killed leaves changes beside the file.
  lived.Live(300, ShimFor(lived, "sync:kill:2", "records.db"));
  const auto changes_of = [](const Target& target, std::string_view name) {
    std::vector<std::string> changes;
    for (const auto& entry : std::filesystem::directory_iterator(target.folder().data())) {
      const std::string found = entry.path().filename().string();
      if (!found.starts_with(name) || !found.ends_with("-wal")) continue;
      changes.push_back(platform::ReadWholeFile(entry.path(), 64u << 20).value());
    }
    return changes;
  };
  const std::vector<std::string> changes = changes_of(lived, "records.db-");
  ASSERT_EQ(changes.size(), 1u);
  ASSERT_NE(changes[0], "");
  std::size_t rounds = 0;
  std::size_t otherwise = 0;
  Findings findings;
  for (int n = 1;; ++n) {
    Target target;
    target.TakeOver(lived);
    DamageVersion(target);
    target.Live(300, ShimFor(target, "rename:kill:" + std::to_string(n)));
    target.Live(300);
    Findings found = target.Look();
    if (found.set_aside != 1 || changes_of(target, "records.db.corrupt-") != changes) ++otherwise;
    found.set_aside = 0;
    findings += found;
    if (!Reached(target)) break;
    ++rounds;
  }
  EXPECT_GT(rounds, 1u);
  std::cout << "attack  damaged stores not set aside once: " << otherwise << " (0)" << std::endl;
  EXPECT_EQ(otherwise, 0u);
  Report("killed while a damaged store is set aside", rounds, findings);
}

TEST(StoreAttack, EveryCallFailsOnce) {
  Target lived;
  lived.Live(250);
  std::mutex mutex;  // guards the next two
  Findings findings;
  std::size_t rounds = 0;
  const auto fail_each = [&](const std::string& fault) {
    for (int n = 1;; ++n) {
      SCOPED_TRACE(fault + std::to_string(n));
      Target target;
      target.TakeOver(lived);
      target.SetRegion("AT");
      target.Live(250, ShimFor(target, fault + std::to_string(n)));
      target.Live(250);
      const Findings found = target.Look();
      const std::lock_guard lock(mutex);
      findings += found;
      if (!Reached(target)) return;
      ++rounds;
    }
  };
  for (const std::string call : {"open:", "read:", "write:", "sync:", "rename:"}) {
    // Side by side: a life waits more than it works.
    std::vector<std::jthread> errors;
    for (const char* const error : {"EIO:", "ENOSPC:", "EMFILE:", "EINTR:"})
      errors.emplace_back(fail_each, call + error);
  }
  Report("the n-th call fails", rounds, findings);
}

// `fault`: every such call fails for a while.
void FailForAWhile(const char* fault, const std::string& name) {
  Findings findings;
  const std::uint64_t rounds = Asked("TVK_ATTACK_FULL_DISKS", 5);
  for (std::uint64_t round = 0; round < rounds; ++round) {
    Target target;
    const std::filesystem::path failing = SwitchOf(target);
    const Environment shim(ShimFor(target, fault));
    ChildProcess service(ProgramBeside("TVKClientService"), target.Life(60000));
    ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
    const auto changes = [&] { return target.folder().CountInLog("EventManager.log", "OnDeviceContextChanges Exit"); };
    std::ofstream(failing).put('x');
    std::size_t before = changes();
    target.SetRegion("AT");
    ASSERT_TRUE(service.WaitFor([&] { return changes() > before; }, kPatience));
    std::filesystem::remove(failing);
    // The datasets start anew: their records refer to what could not be written meanwhile.
    const std::string policy = platform::ReadWholeFile(target.folder().policy(), 1u << 20).value();
    target.folder().WritePolicy(CpuPolicy("none"));
    ASSERT_TRUE(
        service.WaitFor([&] { return target.folder().CountInLog("EventManager.log", "full-->none") == 1; }, kPatience));
    target.folder().WritePolicy(policy);
    const std::size_t shown = service.Lines().size();
    ASSERT_TRUE(service.WaitFor([&] { return service.Lines().size() > shown + 3; }, kPatience));
    service.Ask(ChildRequest::kTerminate);
    ASSERT_EQ(service.WaitForEnd(kPatience), 0);
    target.NoteShown(service.Lines());
    findings += target.Look();
  }
  Report(name, rounds, findings);
  std::cout << "attack  " << name << ": refused records in the store: " << findings.unshown << " (0)" << std::endl;
  EXPECT_EQ(findings.unshown, 0u);
}

TEST(StoreAttack, FullDiskThatIsFreeAgain) {
  FailForAWhile("write:ENOSPC:0", "the disk is full and free again");
}

TEST(StoreAttack, FlushesThatFailForAWhile) {
  FailForAWhile("sync:EIO:0", "no flush succeeds for a while");
}

// A damaged store may be set aside or used; the service must go on either way, and the store be readable after it.
TEST(StoreAttack, DamagedStores) {
  std::mt19937 random(2);
  const std::uint64_t rounds = Asked("TVK_ATTACK_STORES", 400);
  Target first;
  first.Live(500);
  const std::filesystem::path good = first.folder().data() / "records.db";
  const std::string whole = platform::ReadWholeFile(good, 64u << 20).value();
  constexpr std::size_t kHeader = 100;  // SQLite file format, 1.3
  std::size_t failed = 0;
  Findings findings;
  for (std::uint64_t round = 0; round < rounds; ++round) {
    std::string bytes = whole;
    const std::size_t place = round % 3 == 0 ? random() % 100 : random() % bytes.size();
    switch (round % 4) {
      case 0:
        bytes.resize(random() % bytes.size());
        break;
      case 1:
        bytes[place] = static_cast<char>(random());
        break;
      case 2:
        bytes.replace(place, std::min<std::size_t>(512, bytes.size() - place), 512, static_cast<char>(random()));
        break;
      default:
        for (int i = 0; i < 32; ++i)
          bytes[random() % bytes.size()] = static_cast<char>(random());
    }
    Target target;
    std::filesystem::create_directories(target.folder().data());
    std::ofstream(target.folder().data() / "records.db", std::ios::binary) << bytes;
    const int code = target.Live(120);
    Findings found = target.Look();
    found.set_aside = 0;  // as it should be
    found.dangling = 0;   // a byte of an id that was changed inside of a record is no damage that the file could tell
    // Whose header is damaged may be taken for a foreign database, which is not touched; with any other the service
    // lives, and lives again.
    if (code == 2 && bytes.compare(0, kHeader, whole, 0, kHeader) != 0) {
      found.unreadable = 0;
    } else if (code != 0 || target.Live(120) != 0) {
      ++failed;
    }
    findings += found;
  }
  EXPECT_EQ(failed, 0u);
  Report("damaged stores", rounds, findings);
}

}  // namespace

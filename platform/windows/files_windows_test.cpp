#include "platform/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/windows/owner.h"
#include "testing/child_process.h"
#include "testing/temp_folder.h"

namespace {

std::atomic<int> moves = 0;

BOOL WINAPI MoveWithinAFolder(const wchar_t* from, const wchar_t* to, DWORD flags) {
  ++moves;
  EXPECT_EQ(std::filesystem::path(from).parent_path(), std::filesystem::path(to).parent_path());
  EXPECT_EQ(flags & MOVEFILE_COPY_ALLOWED, 0u) << "a copy is neither one step nor does it keep the access list";
  const FARPROC call = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "MoveFileExW");
  return reinterpret_cast<decltype(&MoveFileExW)>(reinterpret_cast<void*>(call))(from, to, flags);
}

}  // namespace

// In the place of the import. Wine knows no other rename over a file.
extern "C" {
// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*)
decltype(&MoveFileExW) __imp_MoveFileExW = &MoveWithinAFolder;
}

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
  EXPECT_GT(moves, 0);
}

TEST(FilesWindows, WhatAKillLeftGoesAndWhatIsBeingWrittenStays) {
  const TempFolder temp;
  const std::filesystem::path file = temp.path() / "policy.json";
  const std::string own = "policy.json." + std::to_string(GetCurrentProcessId()) + "-1.new";
  const auto make = [&](const std::string& name) { EXPECT_EQ(ReplaceFile(temp.path() / name, "x"), ""); };
  // Numbers of processes are multiples of four.
  for (const std::string& name : {std::string("policy.json.4294967291-1.new"), std::string("policy.json.3-12.new")})
    make(name);
  const std::vector<std::string> stay = {own,
                                         "policy.json",
                                         "policy.json.new",
                                         "policy.json.1.new",
                                         "policy.json.x-1.new",
                                         "policy.json.3-1x.new",
                                         "policy.jsonx.3-1.new"};
  for (const std::string& name : stay)
    make(name);
  RemoveLeftovers(file);
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(temp.path()))
    left.push_back(PathToUtf8(entry.path().filename()));
  EXPECT_THAT(left, testing::UnorderedElementsAreArray(stay));
}

TEST(FilesWindows, AFolderOfSoLongANameThatItsFilesCouldNotBeOpenedIsRefused) {
  const TempFolder temp;
  const std::filesystem::path folder = temp.path() / std::string(200 - temp.path().native().size() - 1, 'x');
  EXPECT_EQ(MakePrivateFolder(folder), "");
  const std::filesystem::path longer = folder.native() + L"x";
  EXPECT_EQ(MakePrivateFolder(longer), PathToUtf8(longer) + " is longer than 200 characters");
  EXPECT_FALSE(exists(longer));
}

}  // namespace
}  // namespace platform::windows

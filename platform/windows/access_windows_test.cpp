// Who may reach what we make: named events and private folders.
#include "platform/files.h"
#include "platform/local.h"
#include "platform/windows/sys.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <array>
#include <cstddef>
#include <map>

#include "platform/windows/folder_owners.h"
#include "platform/windows/owner.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

// The access list of the event `name`, as text.
std::string AccessListOf(const wchar_t* name) {
  const UniqueKernelHandle event(OpenEventW(READ_CONTROL, FALSE, name));
  std::array<std::max_align_t, 64> descriptor;
  DWORD needed = 0;
  if (!GetKernelObjectSecurity(event.get(), DACL_SECURITY_INFORMATION, descriptor.data(), sizeof descriptor, &needed)) {
    return LastErrorText("GetKernelObjectSecurity");
  }
  wchar_t* text = nullptr;
  ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                       &text, nullptr);
  const UniqueLocalMemory owner(text);
  return Utf8FromWide(text);
}

TEST(NamedEventAccess, OnlySessionEventsNameTheLoggedOnUsers) {
  const auto runtime = MakeRealRuntime({});
  const wchar_t* const own_name = L"Global\\TvkAccessTestOwn";
  const wchar_t* const shared_name = L"Global\\TvkAccessTestShared";
  const auto own = runtime->MakeNamedEvent(own_name, EventReset::kAuto, false, EventAccess::kServiceOnly);
  const auto shared = runtime->MakeNamedEvent(shared_name, EventReset::kAuto, false, EventAccess::kSessionUsers);
  ASSERT_TRUE(own.event && shared.event);
  EXPECT_EQ(AccessListOf(own_name).find(";;;IU)"), std::string::npos) << AccessListOf(own_name);
  EXPECT_NE(AccessListOf(shared_name).find("(A;;0x100002;;;IU)"), std::string::npos) << AccessListOf(shared_name);
  for (const wchar_t* const name : {own_name, shared_name}) {
    EXPECT_TRUE(runtime->MakeNamedEvent(name, EventReset::kAuto, false, EventAccess::kServiceOnly).event) << "again";
    for (const std::string everyone : {";;;WD)", ";;;AU)", ";;;BU)", ";;;AN)"}) {
      EXPECT_EQ(AccessListOf(name).find(everyone), std::string::npos) << AccessListOf(name);
    }
  }
}

TEST(NamedEventAccess, EventOfAnotherAccountIsRefused) {
  const wchar_t* const name = L"Global\\TvkAccessTestForeign";
  SecurityAttributes system_only("D:P(A;;GA;;;SY)");
  ASSERT_TRUE(system_only.ok());
  const UniqueKernelHandle foreign(CreateEventW(system_only.get(), TRUE, FALSE, name));
  ASSERT_TRUE(foreign);
  const auto runtime = MakeRealRuntime({});
  const auto opened = runtime->OpenNamedEvent(name);
  EXPECT_FALSE(opened.event);
  EXPECT_EQ(opened.error, static_cast<std::uint32_t>(ERROR_ACCESS_DENIED));
  const auto made = runtime->MakeNamedEvent(name, EventReset::kManual, false, EventAccess::kSessionUsers);
  EXPECT_FALSE(made.event);
  EXPECT_EQ(made.error, static_cast<std::uint32_t>(ERROR_ACCESS_DENIED));
}

// Signalled for ever and open to everybody: whoever took it would never wait again.
TEST(NamedEventAccess, EventThatAnotherAccountOwnsIsRefusedHoweverOpenItIs) {
  struct Row {
    const char* owner;
    bool taken;
  };
  const std::string own = ProcessUserSid();
  for (const Row& row : {Row{"S-1-5-21-1-2-3-1001", false}, Row{"BU", false}, Row{"SY", true}, Row{"BA", true},
                         Row{own.c_str(), true}}) {
    SCOPED_TRACE(row.owner);
    SecurityAttributes planted("O:" + std::string(row.owner) + "D:(A;;GA;;;WD)");
    ASSERT_TRUE(planted.ok());
    const wchar_t* const name = L"Global\\TvkAccessTestPlanted";
    const UniqueKernelHandle event(CreateEventW(planted.get(), TRUE, TRUE, name));
    if (!event) continue;  // Windows lets an account without the restore privilege name only itself as the owner
    const auto made = MakeRealRuntime({})->MakeNamedEvent(name, EventReset::kAuto, false, EventAccess::kServiceOnly);
    EXPECT_EQ(made.event != nullptr, row.taken);
    EXPECT_EQ(made.error, row.taken ? 0 : kErrorForeignOwner);
  }
}

TEST(NamedEventAccess, UnusableNamesMakeNoPrivateEvent) {
  const auto runtime = MakeRealRuntime({});
  for (const std::wstring_view name : {std::wstring_view(L""), std::wstring_view(L"Global\\a\0b", 10)}) {
    EXPECT_EQ(runtime->MakeNamedEvent(name, EventReset::kAuto, false, EventAccess::kServiceOnly).error,
              static_cast<std::uint32_t>(ERROR_INVALID_NAME));
  }
  EXPECT_EQ(runtime->OpenNamedEvent(L"Global\\TvkNobodyMadeThis").error,
            static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST(PrivateFolder, NoFolderOnTheWayFromTheCommonOneMayBeAnotherAccounts) {
  const std::string own = ProcessUserSid();
  const std::map<std::filesystem::path, std::string> owners = {
      {L"C:\\Common", "S-1-5-18"},      {L"C:\\Common\\Good", "S-1-5-32-544"},
      {L"C:\\Common\\Good\\data", own}, {L"C:\\Common\\Bad", "S-1-5-21-1-2-3-1001"},
      {L"C:\\Common\\Bad\\data", own},  {L"D:\\Of all", "S-1-1-0"},
      {L"D:\\Of all\\data", own}};
  const auto owner_of = [&](const std::filesystem::path& folder) {
    const auto row = owners.find(folder);
    return row == owners.end() ? std::string() : row->second;
  };
  for (const auto& [folder, foreign] : {std::pair(L"C:\\Common\\Good\\data", L""),
                                        {L"C:\\Common\\Good\\new\\deep", L""},
                                        {L"c:\\common\\New", L""},
                                        {L"C:\\Common\\Bad\\data", L"C:\\Common\\Bad"},
                                        {L"C:\\Common\\Bad\\new", L"C:\\Common\\Bad"},
                                        {L"D:\\Of all", L"D:\\Of all"},
                                        {L"D:\\Of all\\data", L""},
                                        {L"data", L""}}) {
    EXPECT_EQ(FindForeignFolder(folder, L"C:\\Common", owner_of), std::filesystem::path(foreign)) << folder;
  }
  EXPECT_EQ(OwnerOfEntry(std::filesystem::temp_directory_path()), own);
  EXPECT_EQ(OwnerOfEntry(L"C:\\no such folder"), "");
}

TEST(PrivateFolder, IsForTheSystemTheAdministratorsAndTheOwnAccountAlone) {
  const std::filesystem::path base =
      std::filesystem::temp_directory_path() / ("tvk-access-" + std::to_string(GetCurrentProcessId()));
  const std::filesystem::path folder = base / L"deep" / L"f\u00f6lder";
  ASSERT_EQ(MakePrivateFolder(folder), "");
  ASSERT_EQ(MakePrivateFolder(folder), "") << "an existing folder is no failure";

  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                                  nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  const UniqueLocalMemory descriptor_owner(descriptor);
  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  const UniqueLocalMemory text_owner(text);
  const std::string list = Utf8FromWide(text);
  EXPECT_EQ(list.find(";;;WD)"), std::string::npos) << "everyone: " << list;
  EXPECT_EQ(list.find(";;;BU)"), std::string::npos) << "users: " << list;
  EXPECT_NE(list.find("FA;;;" + ProcessUserSid() + ")"), std::string::npos) << list;

  const std::filesystem::path file = folder / "x.json";
  EXPECT_EQ(ReplaceFile(file, "old"), "");
  EXPECT_EQ(ReplaceFile(file, "new"), "");
  EXPECT_EQ(ReadWholeFile(file, 3).value_or("?"), "new");
  FileProblem problem;
  EXPECT_FALSE(ReadWholeFile(file, 2, &problem));
  EXPECT_NE(problem.text.find("x.json is longer than 2 bytes"), std::string::npos) << problem.text;
  EXPECT_FALSE(ReadWholeFile(folder / "none.json", 2, &problem));
  EXPECT_EQ(problem.fault, FileFault::kAbsent);
  const UniqueFile held(CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_NE(ReplaceFile(file, "third"), "") << "nobody may replace what another keeps for itself";
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1) << "the temporary file is gone";
  std::error_code ignored;
  std::filesystem::remove_all(base, ignored);
}

}  // namespace
}  // namespace platform::windows

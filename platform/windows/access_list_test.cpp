#include "platform/windows/access_list.h"

#include "platform/windows/sys.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/windows/security.h"
#include "testing/temp_folder.h"

namespace platform::windows {
namespace {

constexpr std::uint32_t kRead = FILE_GENERIC_READ | FILE_GENERIC_EXECUTE;
constexpr std::uint32_t kModify = kRead | FILE_GENERIC_WRITE | DELETE;
constexpr std::uint32_t kFull = FILE_ALL_ACCESS;

constexpr char kSystem[] = "S-1-5-18";
constexpr char kAdministrators[] = "S-1-5-32-544";
constexpr char kInstaller[] = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
constexpr char kUsers[] = "S-1-5-32-545";
constexpr char kEveryone[] = "S-1-1-0";
constexpr char kCreatorOwner[] = "S-1-3-0";
constexpr char kAccount[] = "S-1-5-21-1-2-3-1001";
constexpr char kDomainUsers[] = "S-1-5-21-1-2-3-513";
constexpr char kService[] = "S-1-5-80-1-2-3-4-5";

TEST(AccessList, Verdicts) {
  const std::string own = ProcessUserSid();
  struct Row {
    const char* what;
    std::string owner;
    AccessEntry entry;  // beside the system's and the administrators' full rights
    bool only_trusted_write;
    bool only_trusted_replace;
    bool too_open;
  };
  for (const Row& row : {
           Row{"a folder of our making", kSystem, {own, kFull}, true, true, false},
           Row{"made by an administrator below %ProgramData%", kAdministrators, {kUsers, kRead}, true, true, true},
           Row{"with the right to make files, too", kAdministrators, {kUsers, FILE_ADD_FILE}, false, true, true},
           Row{"or folders", kAdministrators, {kUsers, FILE_ADD_SUBDIRECTORY}, false, true, true},
           Row{"or to rename what lies in it", kAdministrators, {kUsers, FILE_DELETE_CHILD}, false, false, true},
           Row{"to write as files have it", kAdministrators, {kUsers, GENERIC_WRITE}, false, true, true},
           Row{"a folder of the system's", kInstaller, {kInstaller, GENERIC_ALL}, true, true, false},
           Row{"for what is made in it alone", kSystem, {kUsers, kRead, false}, true, true, true},
           Row{"and written", kSystem, {kUsers, GENERIC_WRITE, false}, true, true, true},
           Row{"whoever makes something has it", kSystem, {kCreatorOwner, kFull, false}, true, true, false},
           Row{"without a list", kSystem, {kEveryone, GENERIC_ALL}, false, false, true},
           Row{"generic rights", kSystem, {kEveryone, GENERIC_READ}, true, true, true},
           Row{"everybody may pass", kSystem, {kEveryone, FILE_TRAVERSE | SYNCHRONIZE}, true, true, false},
           Row{"an account was let read", kSystem, {kAccount, kRead}, true, true, false},
           Row{"an account was let write", kSystem, {kAccount, kModify}, false, false, true},
           Row{"a service was let read", kSystem, {kService, kRead}, true, true, false},
           Row{"a service may change the list", kSystem, {kService, WRITE_DAC}, false, false, true},
           Row{"a group that every user is in", kSystem, {kDomainUsers, kRead}, true, true, true},
           Row{"a form of entry that we do not know", kSystem, {"?", GENERIC_ALL}, false, false, true},
           Row{"another's", kAccount, {kSystem, kFull}, false, false, false},
           Row{"the owner is not told", "", {kSystem, kFull}, false, false, false},
       }) {
    const AccessList list{row.owner, {{kSystem, kFull}, {kAdministrators, kFull}, row.entry}};
    EXPECT_EQ(OnlyTrustedMayWrite(list), row.only_trusted_write) << row.what;
    EXPECT_EQ(OnlyTrustedMayReplace(list), row.only_trusted_replace) << row.what;
    EXPECT_EQ(IsTooOpen(list), row.too_open) << row.what;
  }
}

TEST(AccessList, AFolderThatIsTooOpenIsClosedWhereItIsOursAlone) {
  const TempFolder temp;
  const std::filesystem::path parent = temp.path() / "private";  // Wine gives what the parent gives, too
  const std::filesystem::path folder = parent / "data";
  ASSERT_EQ(MakePrivateFolder(parent), "");
  const auto is_ours = [](const std::string& name) { return name == "ours"; };
  for (const bool alone : {true, false}) {
    SecurityAttributes open("D:(A;OICI;FA;;;WD)(A;OICI;FA;;;" + ProcessUserSid() + ")");
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), open.get()));
    ASSERT_EQ(ReplaceFile(folder / (alone ? "ours" : "theirs"), "x"), "");
    const std::string remark = CloseFolder(folder, is_ours);
    EXPECT_TRUE(remark.ends_with(alone ? "it is closed now" : "it stays so, since it is not the service's alone"))
        << remark;
    EXPECT_EQ(CloseFolder(folder, is_ours).empty(), alone);
    EXPECT_EQ(FindForeignFile(folder, [](const std::string&) { return true; }), std::filesystem::path());
    std::filesystem::remove_all(folder);
  }
  EXPECT_FALSE(ReadAccessList(folder));
}

}  // namespace
}  // namespace platform::windows

#include "platform/access_list.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

constexpr char kUsers[] = "S-1-5-32-545";
constexpr char kOwn[] = "S-1-5-21-1-2-3-1001";
constexpr char kInstaller[] = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
constexpr std::uint32_t kFullControl = 0x1F01FF;
constexpr std::uint32_t kReadAndExecute = 0x1200A9;

TEST(AccessListTest, NobodyButAdministratorsMayChangeWhatIsReliedOn) {
  using Kind = AccessEntry::Kind;
  const auto whole = [](AccessEntry entry, std::string owner = kInstaller) {
    return AccessList{std::move(owner),
                      false,
                      {{Kind::kAllow, false, kFullControl, "S-1-5-18"},
                       {Kind::kAllow, false, kFullControl, "S-1-5-32-544"},
                       {Kind::kAllow, false, kReadAndExecute, kUsers},
                       {Kind::kAllow, true, 0x10000000, "S-1-3-0"},
                       std::move(entry)}};
  };
  struct Row {
    const char* what;
    AccessList list;
    bool file, folder, above;
  };
  const auto users = [&](const char* what, std::uint32_t mask, bool file, bool folder, bool above) {
    return Row{what, whole({Kind::kAllow, false, mask, kUsers}), file, folder, above};
  };
  for (const Row& row : {
           users("read and execute", kReadAndExecute, true, true, true),
           users("attributes", 0x110, true, true, true),
           users("add files, write", 0x2, false, false, true),
           users("add folders, append", 0x4, false, false, true),
           users("delete inside", 0x40, true, false, false),
           users("delete", 0x10000, false, false, false),
           users("change the list", 0x40000, false, false, false),
           users("take over", 0x80000, false, false, false),
           users("all", 0x10000000, false, false, false),
           users("write", 0x40000000, false, false, true),
           Row{"inherited only", whole({Kind::kAllow, true, kFullControl, kUsers}), true, true, true},
           Row{"denied", whole({Kind::kDeny, false, kFullControl, kUsers}), true, true, true},
           Row{"on a condition", whole({Kind::kOther, false, kReadAndExecute, kUsers}), false, false, false},
           Row{"the own account", whole({Kind::kAllow, false, kFullControl, kOwn}), true, true, true},
           Row{"owned by the own account", whole({}, kOwn), true, true, true},
           Row{"owned by another", whole({}, "S-1-5-21-1-2-3-1002"), false, false, false},
           Row{"owned by nobody", whole({}, ""), false, false, false},
           Row{"without a list", {kInstaller, true}, false, false, false},
           Row{"with an empty list", {kInstaller}, true, true, true},
       }) {
    SCOPED_TRACE(row.what);
    const std::string own[] = {kOwn};
    EXPECT_EQ(OnlyAdministratorsMayChange(row.list, PathPart::kFile, own), row.file);
    EXPECT_EQ(OnlyAdministratorsMayChange(row.list, PathPart::kFolder, own), row.folder);
    EXPECT_EQ(OnlyAdministratorsMayChange(row.list, PathPart::kFolderAbove, own), row.above);
  }
  EXPECT_FALSE(OnlyAdministratorsMayChange(whole({}, kOwn), PathPart::kFile));
}

}  // namespace
}  // namespace platform

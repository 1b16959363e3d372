// Wine obeys neither a pipe's access list nor most of its flags: they are looked at as data.
#include "platform/windows/local_channel_windows.h"

#include <gtest/gtest.h>

#include "platform/windows/security.h"

namespace platform::windows {
namespace {

TEST(LocalPipe, NobodyElseServesAndNobodyCallsOverTheNetwork) {
  EXPECT_TRUE(PipeOpenMode(true) & FILE_FLAG_FIRST_PIPE_INSTANCE);
  EXPECT_FALSE(PipeOpenMode(false) & FILE_FLAG_FIRST_PIPE_INSTANCE);
  EXPECT_TRUE(kPipeMode & PIPE_REJECT_REMOTE_CLIENTS);
  EXPECT_EQ(kPipeClientFlags & SECURITY_SQOS_PRESENT, DWORD{SECURITY_SQOS_PRESENT});
  EXPECT_EQ(kPipeClientFlags & (SECURITY_IDENTIFICATION | SECURITY_IMPERSONATION), DWORD{SECURITY_IDENTIFICATION});
  const std::string list = PipeAccessList("S-1-5-80-1");
  EXPECT_TRUE(list.starts_with("O:S-1-5-80-1D:P(A;;GA;;;SY)")) << list;
  EXPECT_EQ(list.find("(D;"), std::string::npos) << "an administrator who works from afar may call: " << list;
  for (const char* const everybody : {";;;WD)", ";;;AU)", ";;;BU)", ";;;AN)"})
    EXPECT_EQ(list.find(everybody), std::string::npos) << list;
  EXPECT_TRUE(SecurityAttributes(list).ok());
}

TEST(LocalPipe, AnInstallationHasItsOwnName) {
  EXPECT_EQ(PipeName({}), L"\\\\.\\pipe\\TVKClientService");
  EXPECT_EQ(PipeName("C:\\Data\\X"), PipeName("c:/data/y/../x"));
  EXPECT_EQ(PipeName("C:\\Data\\X"), PipeName("C:\\Data\\X\\"));
  EXPECT_NE(PipeName("C:\\Data\\X"), PipeName("C:\\Data\\Y"));
  EXPECT_NE(PipeName("C:\\Data\\X"), PipeName({}));
}

}  // namespace
}  // namespace platform::windows

#include "platform/windows/session_process_windows.h"

#include <gtest/gtest.h>

namespace platform::windows {
namespace {

/// What the played system was asked for.
struct Asked {
  int processes = 0;
  int open_environments = 0;
  std::wstring program, line, desktop;
  DWORD flags = 0;
  BOOL inherit = TRUE;
  void* environment = nullptr;
};
Asked asked;

wchar_t block_of_the_user[] = L"USERNAME=user\0";

BOOL WINAPI Refuse(void**, HANDLE, BOOL) {
  SetLastError(ERROR_NO_SYSTEM_RESOURCES);
  return FALSE;
}
BOOL WINAPI Give(void** block, HANDLE, BOOL inherit) {
  EXPECT_FALSE(inherit) << "the service's variables are not the user's";
  ++asked.open_environments;
  *block = block_of_the_user;
  return TRUE;
}
BOOL WINAPI TakeBack(void*) {
  --asked.open_environments;
  return TRUE;
}
BOOL WINAPI Start(HANDLE, const wchar_t* program, wchar_t* line, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*,
                  BOOL inherit, DWORD flags, void* environment, const wchar_t*, STARTUPINFOW* startup,
                  PROCESS_INFORMATION* started) {
  ++asked.processes;
  asked.program = program;
  asked.line = line;
  asked.desktop = startup->lpDesktop;
  asked.flags = flags;
  asked.inherit = inherit;
  asked.environment = environment;
  *started = {CreateEventW(nullptr, TRUE, TRUE, nullptr), CreateEventW(nullptr, TRUE, TRUE, nullptr), 1, 1};
  return TRUE;
}

TEST(StartAsUser, GivesTheUsersDesktopAndEnvironmentOrStartsNothing) {
  const UniqueKernelHandle token(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const std::filesystem::path program = L"C:\\Program Files\\Tvk\\Agent.exe";
  const SessionProcessStart refused =
      StartAsUser(token, program, {}, {.create_environment = Refuse, .create_process = Start});
  EXPECT_EQ(refused.process, nullptr);
  EXPECT_NE(refused.problem.find("CreateEnvironmentBlock"), std::string::npos) << refused.problem;
  EXPECT_EQ(asked.processes, 0);

  const SessionProcessStart started = StartAsUser(token, program, {L"a b"}, {Give, TakeBack, Start});
  ASSERT_NE(started.process, nullptr) << started.problem;
  EXPECT_TRUE(started.process->WaitForEnd(std::chrono::milliseconds(0)));
  EXPECT_EQ(asked.open_environments, 0);
  EXPECT_EQ(asked.program, program.native()) << "without it the first blank would end the program's name";
  EXPECT_EQ(asked.line, L"\"C:\\Program Files\\Tvk\\Agent.exe\" \"a b\"");
  EXPECT_EQ(asked.desktop, L"winsta0\\default");
  EXPECT_EQ(asked.flags, static_cast<DWORD>(CREATE_UNICODE_ENVIRONMENT));
  EXPECT_FALSE(asked.inherit);
  EXPECT_EQ(asked.environment, block_of_the_user);
}

}  // namespace
}  // namespace platform::windows

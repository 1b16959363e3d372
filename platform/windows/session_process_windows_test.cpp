#include "platform/windows/session_process_windows.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include "platform/local.h"
#include "platform/windows/process_list.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"

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
      StartAsUser(token, 7, {.program = program}, {.create_environment = Refuse, .create_process = Start});
  EXPECT_EQ(refused.process, nullptr);
  EXPECT_NE(refused.problem.find("CreateEnvironmentBlock"), std::string::npos) << refused.problem;
  EXPECT_EQ(asked.processes, 0);

  const SessionProcessStart started =
      StartAsUser(token, 7, {.program = program, .arguments = {L"a b"}}, {Give, TakeBack, Start});
  ASSERT_NE(started.process, nullptr) << started.problem;
  EXPECT_EQ(started.session, 7u) << "the process may have ended, and be in no session any more";
  EXPECT_EQ(MakeRealRuntime({})->Wait(started.process->end(), std::chrono::milliseconds(0)), 0u);
  EXPECT_EQ(asked.open_environments, 0);
  EXPECT_EQ(asked.program, program.native()) << "without it the first blank would end the program's name";
  EXPECT_EQ(asked.line, L"\"C:\\Program Files\\Tvk\\Agent.exe\" \"a b\"");
  EXPECT_EQ(asked.desktop, L"winsta0\\default");
  EXPECT_EQ(asked.flags, static_cast<DWORD>(CREATE_UNICODE_ENVIRONMENT));
  EXPECT_FALSE(asked.inherit);
  EXPECT_EQ(asked.environment, block_of_the_user);
}

TEST(GiveEventTo, LetsOneAccountHaveEveryRight) {
  const auto runtime = MakeRealRuntime({});
  constexpr wchar_t kName[] = L"Global\\TvkGivenEvent";
  constexpr char kSomebody[] = "S-1-5-21-1-2-3-1001";
  EXPECT_EQ(GiveEventTo(kSomebody, kName), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  const auto event = runtime->MakeNamedEvent(kName, EventReset::kManual, false, EventAccess::kServiceOnly).event;
  EXPECT_NE(GiveEventTo("nobody", kName), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(GiveEventTo(kSomebody, kName), static_cast<DWORD>(ERROR_SUCCESS));
  const UniqueKernelHandle own(OpenEventW(EVENT_ALL_ACCESS, FALSE, kName));
  ASSERT_TRUE(own) << "this account keeps its own";
  PSECURITY_DESCRIPTOR list = nullptr;
  ASSERT_EQ(GetSecurityInfo(own.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, nullptr,
                            &list),
            static_cast<DWORD>(ERROR_SUCCESS));
  const UniqueLocalMemory list_owner(list);
  wchar_t* text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(list, SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                                   &text, nullptr));
  const UniqueLocalMemory text_owner(text);
  EXPECT_NE(std::wstring(text).find(L"(A;;0x1f0003;;;S-1-5-21-1-2-3-1001)"), std::wstring::npos) << Utf8FromWide(text);
}

TEST(MayBeService, AUsersProgramOfTheServicesNameIsNone) {
  constexpr char kUser[] = "S-1-5-21-1-2-3-1001";
  constexpr char kOther[] = "S-1-5-21-1-2-3-1002";
  struct Row {
    const char* what;
    ProcessOwner owner;
    std::string account;
    bool denied_may_be;
    bool expected;
  };
  for (const auto& [what, owner, account, denied_may_be, expected] :
       {Row{"the system's", {"S-1-5-18"}, {}, false, true},
        {"an administrator's with full rights", {"S-1-5-32-544"}, kUser, false, true},
        {"the own account's, of a service in a console", {kUser}, kUser, false, true},
        {"a user's beside the system's service", {kUser}, "S-1-5-32-544", true, false},
        {"another user's, seen by the system", {kOther}, "S-1-5-18", false, false},
        {"another user's, seen by an ordinary one", {.denied = true, .session = 2}, "S-1-5-18", true, false},
        {"the user's, which keeps the user away", {.denied = true, .session = 1}, kUser, true, false},
        {"one that is gone", {}, {}, true, false},
        {"the system's, seen by an ordinary account", {.denied = true, .session = 0}, "S-1-5-18", true, true},
        {"one that no list has", {.denied = true}, kUser, true, true},
        {"one that keeps even the system away", {.denied = true, .session = 0}, "S-1-5-18", false, false}})
    EXPECT_EQ(MayBeService(owner, account, denied_may_be), expected) << what;
}

TEST(OwnerOfProcess, IsAskedOfTheSystem) {
  EXPECT_TRUE(IsTrustedAccount(OwnerOfProcess(GetCurrentProcessId()).sid));
  const ProcessOwner none = OwnerOfProcess(0xfffffff0);
  EXPECT_TRUE(none.sid.empty());
  EXPECT_FALSE(none.denied) << "it is gone, and kept from nobody";
}

TEST(OwnerOfProcess, OfOneThatKeepsItsOwnUserAwayTheSessionIsKnown) {
  DWORD own = 0;
  ASSERT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &own));
  EXPECT_EQ(SessionOf(GetCurrentProcessId()), own);
  EXPECT_EQ(SessionOf(0xfffffff0), std::nullopt);
  SecurityAttributes to_end_it_alone("D:P(A;;0x1;;;OW)");
  ASSERT_TRUE(to_end_it_alone.ok());
  std::wstring line = L"cmd.exe /c exit";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  ASSERT_TRUE(CreateProcessW(nullptr, line.data(), to_end_it_alone.get(), nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                             nullptr, &startup, &started));
  const UniqueKernelHandle process(started.hProcess);
  const UniqueKernelHandle thread(started.hThread);
  const ProcessOwner owner = OwnerOfProcess(started.dwProcessId);
  TerminateProcess(process.get(), 0);
  EXPECT_EQ(owner.denied, owner.sid.empty());
  EXPECT_EQ(owner.session, owner.denied ? std::optional<std::uint32_t>(own) : std::nullopt);
}

}  // namespace
}  // namespace platform::windows

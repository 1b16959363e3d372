#include "platform/windows/system_folders.h"

#include "platform/windows/sys.h"

#include <userenv.h>

#include <string>

#include "platform/windows/registry.h"
#include "platform/windows/text.h"

namespace platform::windows {

std::filesystem::path CommonFolder() {
  wchar_t program_data[MAX_PATH + 1];
  DWORD length = static_cast<DWORD>(std::size(program_data));
  return GetAllUsersProfileDirectoryW(program_data, &length) ? program_data : L"C:\\ProgramData";
}

std::vector<std::filesystem::path> ProgramFolders() {
  std::vector<std::filesystem::path> folders;
  for (const wchar_t* const name : {L"ProgramFilesDir (x86)", L"ProgramFilesDir"}) {
    const std::string folder = RegistryText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", name);
    if (!folder.empty()) folders.emplace_back(WideFromUtf8(folder));
  }
  return folders;
}

}  // namespace platform::windows

// Reading values of the registry.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/windows/sys.h"

namespace platform::windows {

/// Puts the text of value `name` under `root`\`key` into `value`, as UTF-8. Returns 0 or the system's error, which is
/// ERROR_FILE_NOT_FOUND also for a value that is no text; `value` is then empty.
DWORD ReadRegistryText(HKEY root, const std::wstring& key, const wchar_t* name, std::string& value);

/// The text of value `name` under `root`\`key`, as UTF-8; empty when there is none or it is not a text.
std::string RegistryText(HKEY root, const std::wstring& key, const wchar_t* name);

/// The same for a 32-bit number.
std::optional<std::uint32_t> RegistryNumber(HKEY root, const std::wstring& key, const wchar_t* name);

}  // namespace platform::windows

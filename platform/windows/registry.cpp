#include "platform/windows/registry.h"

#include "platform/windows/text.h"

namespace platform::windows {

DWORD ReadRegistryText(HKEY root, const std::wstring& key, const wchar_t* name, std::string& value) {
  value.clear();
  // RegGetValue ends what it gives with a null, whatever is stored. The value may grow between two calls.
  std::wstring text(64, L'\0');
  for (;;) {
    DWORD size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    const LSTATUS status =
        RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, text.data(), &size);
    if (status == ERROR_SUCCESS) value = Utf8FromWide(text.c_str());
    if (status == ERROR_UNSUPPORTED_TYPE) return ERROR_FILE_NOT_FOUND;
    if (status != ERROR_MORE_DATA) return static_cast<DWORD>(status);
    text.resize(text.size() * 2);
  }
}

std::string RegistryText(HKEY root, const std::wstring& key, const wchar_t* name) {
  std::string value;
  ReadRegistryText(root, key, name, value);
  return value;
}

std::optional<std::uint32_t> RegistryNumber(HKEY root, const std::wstring& key, const wchar_t* name) {
  DWORD value = 0;
  DWORD size = sizeof value;
  if (RegGetValueW(root, key.c_str(), name, RRF_RT_REG_DWORD | RRF_SUBKEY_WOW6464KEY, nullptr, &value, &size) !=
      ERROR_SUCCESS) {
    return std::nullopt;
  }
  return value;
}

}  // namespace platform::windows

#include "platform/windows/text.h"

#include "platform/windows/sys.h"

#include <algorithm>
#include <climits>

namespace platform::windows {
namespace {

// The conversion calls count in int.
int CheckedLength(std::size_t length) {
  return static_cast<int>(std::min<std::size_t>(length, INT_MAX));
}

}  // namespace

std::string Utf8FromWide(std::wstring_view text) {
  const int length = CheckedLength(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
  return result;
}

std::wstring WideFromUtf8(std::string_view text) {
  const int length = CheckedLength(text.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), size);
  return result;
}

std::string ErrorText(std::uint32_t error) {
  wchar_t words[512];
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, words,
                                static_cast<DWORD>(std::size(words)), nullptr);
  while (length > 0 && (words[length - 1] <= L' ' || words[length - 1] == L'.'))
    --length;
  const std::string number = "error " + std::to_string(error);
  return length == 0 ? number : Utf8FromWide({words, length}) + " (" + number + ")";
}

std::string LastErrorText(std::string_view what) {
  const DWORD error = GetLastError();
  return std::string(what) + ": " + ErrorText(error);
}

}  // namespace platform::windows

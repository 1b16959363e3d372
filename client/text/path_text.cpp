#include "client/text/path_text.h"

#include "client/text/string.h"
#include "platform/files.h"

namespace TVK {

std::wstring WidePath(const std::filesystem::path& path) {
  return String::UTF8ToUTF16(platform::PathToUtf8(path));
}

}  // namespace TVK

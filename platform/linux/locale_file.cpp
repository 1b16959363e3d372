#include "platform/linux/locale_file.h"

namespace platform {

Assignments ReadLocaleFile(const Sysroot& root) {
  auto text = root.Read("/etc/default/locale");
  if (!text) text = root.Read("/etc/locale.conf");
  return DecodeAssignments(text.value_or(""));
}

}  // namespace platform

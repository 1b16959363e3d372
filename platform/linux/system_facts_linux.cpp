#include "platform/system_facts.h"

#include "platform/linux/doors_linux.h"
#include "platform/linux/locale_file.h"
#include "platform/linux/proc_text.h"
#include "platform/linux/system_text.h"

namespace platform {
namespace {

class LinuxSystemFacts final : public SystemFacts {
 public:
  explicit LinuxSystemFacts(const Sysroot& root) : root_(root) {}

  OperatingSystemFacts ReadOperatingSystem() override {
    auto text = root_.Read("/etc/os-release");
    if (!text) text = root_.Read("/usr/lib/os-release");
    const Assignments release = DecodeAssignments(text.value_or(""));
    const Assignments locale = ReadLocaleFile(root_);
    return {.name = FirstValue(release, {"NAME"}),
            .version = FirstValue(release, {"VERSION_ID"}),
            .display_language = DecodeLocaleName(FirstValue(locale, {"LC_ALL", "LC_MESSAGES", "LANG"})).tag,
            .update_title = FirstValue(release, {"VERSION"}),
            .update_description = FirstValue(release, {"PRETTY_NAME"})};
  }

  std::string ReadInstallationId() override { return MachineIdOf(root_.ReadLine("/etc/machine-id")); }

  std::string ReadLoggedInUserId() override {
    const std::filesystem::path sessions = "/run/systemd/sessions";
    std::string without_seat;
    for (const std::string& name : root_.FileNames(sessions)) {
      const auto session = DecodeSession(root_.Read(sessions / name).value_or(""));
      if (session && session->has_seat) return session->user_id;
      if (session && without_seat.empty()) without_seat = session->user_id;
    }
    return without_seat;
  }

  std::optional<std::int64_t> ReadBootTime() override { return DecodeBootTime(root_.Read("/proc/stat").value_or("")); }

  std::string ReadBootId() override { return root_.ReadLine("/proc/sys/kernel/random/boot_id"); }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<SystemFacts> MakeSystemFacts(const Sysroot& root) {
  return std::make_unique<LinuxSystemFacts>(root);
}

}  // namespace platform

#include <cerrno>
#include <span>

#include "platform/linux/cpu_topology.h"
#include "platform/linux/proc_text.h"
#include "platform/linux/processor_load.h"
#include "platform/linux/setting_watcher_linux.h"
#include "platform/linux/sysroot.h"
#include "platform/linux/system_text.h"
#include "platform/linux/text_scan.h"
#include "platform/local.h"
#include "platform/smbios_form.h"

namespace platform {
namespace {

void Store(std::uint32_t* error, int code) {
  if (error != nullptr) *error = static_cast<std::uint32_t>(code);
}

std::span<const std::uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// Has no state but its root: any thread.
class LinuxMachine final : public Machine {
 public:
  LinuxMachine(const LocalMachineOptions& options, const Clock& clock) : root_(options.sysroot), clock_(clock) {}

  // The kernel keeps no time weighted by frequency: both readers measure the same.
  ProcessorLoadOpening OpenProcessorUtility() override { return OpenProcessorTime(); }
  ProcessorLoadOpening OpenProcessorTime() override { return OpenProcessorLoad(root_.Resolve("/proc/stat"), clock_); }

  TopologyReading ReadProcessorTopology() override { return ReadTopology(root_); }

  std::optional<MemoryStatus> ReadMemoryStatus(std::uint32_t* error) override {
    int code = 0;
    const auto text = root_.Read("/proc/meminfo", &code);
    const auto status = text ? DecodeMeminfo(*text) : std::nullopt;
    if (!status) Store(error, text ? EBADMSG : code);
    return status;
  }

  std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error) override {
    int code = 0;
    const auto entry_text = root_.Read("/sys/firmware/dmi/tables/smbios_entry_point", &code);
    const auto table = entry_text ? root_.Read("/sys/firmware/dmi/tables/DMI", &code) : std::nullopt;
    if (!table) {
      Store(error, code);
      return {};
    }
    const auto entry = DecodeSmbiosEntryPoint(BytesOf(*entry_text));
    if (!entry) {
      Store(error, EBADMSG);
      return {};
    }
    return MakeRsmb(*entry, BytesOf(*table));
  }

  FirmwareFacts ReadFirmwareFacts() override {
    const std::filesystem::path id = "/sys/class/dmi/id";
    return {.manufacturer = root_.ReadLine(id / "sys_vendor"),
            .product_name = root_.ReadLine(id / "product_name"),
            .product_version = root_.ReadLine(id / "product_version"),
            .product_family = root_.ReadLine(id / "product_family"),
            .product_sku = root_.ReadLine(id / "product_sku"),
            .board_manufacturer = root_.ReadLine(id / "board_vendor"),
            .board_product = root_.ReadLine(id / "board_name"),
            .board_version = root_.ReadLine(id / "board_version"),
            .chassis_type = root_.ReadLine(id / "chassis_type"),
            .bios_vendor = root_.ReadLine(id / "bios_vendor"),
            .bios_version = root_.ReadLine(id / "bios_version"),
            .bios_date = root_.ReadLine(id / "bios_date"),
            .bios_release = root_.ReadLine(id / "bios_release"),
            .ec_release = root_.ReadLine(id / "ec_firmware_release")};
  }

  OperatingSystemFacts ReadOperatingSystemFacts() override {
    auto text = root_.Read("/etc/os-release");
    if (!text) text = root_.Read("/usr/lib/os-release");
    const Assignments release = DecodeAssignments(text.value_or(""));
    return {.name = FirstValue(release, {"NAME"}),
            .version = FirstValue(release, {"VERSION_ID"}),
            .display_language = DecodeLocaleName(FirstValue(ReadLocale(), {"LC_ALL", "LC_MESSAGES", "LANG"})).tag,
            .update_title = FirstValue(release, {"VERSION"}),
            .update_description = FirstValue(release, {"PRETTY_NAME"})};
  }

  RegionFacts ReadRegionFacts() override {
    const Locale locale = DecodeLocaleName(FirstValue(ReadLocale(), {"LC_ALL", "LANG"}));
    std::string zone = root_.ReadLine("/etc/timezone");
    if (zone.empty()) zone = TimeZoneOfLink(root_.LinkTarget("/etc/localtime"));
    return {.nation = locale.territory, .locale_name = locale.tag, .time_zone = std::move(zone)};
  }

  std::string CountryOfNation(const std::string& nation) override { return nation; }

  std::unique_ptr<SettingWatcher> OpenSettingWatcher(Runtime& runtime, SettingChange on_change) override {
    return WatchFactFiles(*this, root_, runtime, std::move(on_change));
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

  // The journal has no channels and no such queries.
  EventLogReading QueryEventLog(const EventLogQuery& /*query*/) override {
    return {.records = {}, .failure = EventLogFailure::kNotSupported, .error = ENOSYS};
  }

 private:
  /// Where Debian and its kin keep the locale, or where systemd does.
  Assignments ReadLocale() const {
    auto text = root_.Read("/etc/default/locale");
    if (!text) text = root_.Read("/etc/locale.conf");
    return DecodeAssignments(text.value_or(""));
  }

  const Sysroot root_;
  const Clock& clock_;
};

}  // namespace

std::unique_ptr<Machine> OpenLocalMachine(const LocalMachineOptions& options, const Clock& clock) {
  return std::make_unique<LinuxMachine>(options, clock);
}

}  // namespace platform

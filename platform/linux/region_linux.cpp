#include "platform/region.h"

#include "platform/linux/doors_linux.h"
#include "platform/linux/locale_file.h"
#include "platform/linux/system_text.h"

namespace platform {
namespace {

class LinuxRegion final : public Region {
 public:
  explicit LinuxRegion(const Sysroot& root) : root_(root) {}

  RegionFacts ReadFacts() override {
    const Locale locale = DecodeLocaleName(FirstValue(ReadLocaleFile(root_), {"LC_ALL", "LANG"}));
    std::string zone = root_.ReadLine("/etc/timezone");
    if (zone.empty()) zone = TimeZoneOfLink(root_.LinkTarget("/etc/localtime"));
    return {.nation = locale.territory, .locale_name = locale.tag, .time_zone = std::move(zone)};
  }

  std::string CountryOfNation(const std::string& nation) override { return nation; }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Region> MakeRegion(const Sysroot& root) {
  return std::make_unique<LinuxRegion>(root);
}

}  // namespace platform

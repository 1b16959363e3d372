#include "apps/tvkctl/inspect_options.h"

#include "apps/tvkctl/offered_values.h"

namespace tvkctl {

void AddSmartOptions(CLI::App& smart, SmartTexts& texts) {
  const auto add_file = [&smart](const char* name, std::string& text, const char* what) {
    return smart.add_option(name, text, std::string("Decode this file of 512 bytes: ") + what)
        ->type_name("FILE")
        ->excludes("--sysroot");
  };
  CLI::Option* const values = add_file("--ata-values", texts.ata_values, "SMART READ DATA of an ATA drive");
  CLI::Option* const thresholds =
      add_file("--ata-thresholds", texts.ata_thresholds, "its SMART READ THRESHOLDS")->needs(values);
  CLI::Option* const identify = add_file("--ata-identify", texts.ata_identify, "its IDENTIFY DEVICE");
  CLI::Option* const health =
      add_file("--nvme-health", texts.nvme_health, "SMART / Health Information of an NVMe drive");
  CLI::Option* const table =
      TakeOneOf(
          smart.add_option("--table", texts.table,
                           "Names of the attributes: sata (the default where the drive does not turn) or generic"),
          {"sata", "generic"})
          ->type_name("TABLE");
  for (CLI::Option* const ata : {values, thresholds, identify, table})
    health->excludes(ata);
}

void AddEventLogOptions(CLI::App& query, EventLogOptions& options) {
  query.add_option("--channels", options.channels, "Four bits, from the right: Application, Security, Setup, System")
      ->type_name("BITS")
      ->required();
  query.add_option("--ids", options.ids, "Event ids, ranges, and either behind a - to leave it out: 1,5-9,-7")
      ->type_name("LIST");
  query
      .add_option("--levels", options.levels,
                  "Eight bits, from the right: Critical, Error, Warning, Information, Verbose; none: all")
      ->type_name("BITS")
      ->required();
  query.add_option("--window", options.window, "How far back: milliseconds, or 90s, 10m, 24h, 7d")
      ->type_name("TIME")
      ->required();
  query.add_flag("--explain", options.explain, "Say it in words");
}

}  // namespace tvkctl

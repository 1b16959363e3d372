// What tvkctl reads under umockdev, which shows a program the power supplies of another machine in the place of its
// own.
#include <gtest/gtest.h>
#include <json/json.h>

#include <filesystem>
#include <sstream>

#include "testing/child_process.h"
#include "testing/source_tree.h"

namespace {

/// What `tvkctl inspect WHAT --json` prints on the machine of a record.
Json::Value Inspect(const char* record, const char* what) {
  const std::filesystem::path file = FromSourceTree("tests/e2e/batteries") / record;
  ChildProcess program("/usr/bin/umockdev-run", {"-d", file.string() + ".umockdev", "--",
                                                 ProgramBeside("tvkctl").string(), "inspect", what, "--json"});
  EXPECT_EQ(program.WaitForEnd(std::chrono::seconds(30)), 0);
  std::stringstream text;
  for (const std::string& line : program.Lines())
    text << line << '\n';
  Json::Value value;
  text >> value;
  return value;
}

TEST(InspectBatteryTest, RecordedMachinesAreReadAsTheFieldsToolReadsThem) {
  // Of the figures, upower 0.99.20 has the same.
  const char* const cell = R"("Id": "BAT0", "DeviceName": "CELL-57A", "Manufacturer": "Acme", "Chemistry": "Li-poly",
      "DesignChargeCapacity": "50500", "BatteryChargeRemaining": "63", "RemainingCapacity": "30000",
      "FullChargeCapacity": "47310", "CycleCount": "213")";
  const std::string discharging = std::string("{") + cell + R"(, "ChargeStatus": "0", "AC/DC mode": "DC",
      "RemainingTime": "13500"})";
  struct Row {
    const char* record;
    std::string batteries;
    const char* power;
  };
  const Row rows[] = {
      {"energy", discharging, R"({"source": "battery", "percentage": 63, "level": null, "charging": false})"},
      {"charge", R"({"Id": "BAT0", "DeviceName": "PACK 2S2P", "Manufacturer": "Zeta Power", "Chemistry": "Li-ion",
        "DesignChargeCapacity": "46200", "BatteryChargeRemaining": "75", "RemainingCapacity": "32340",
        "FullChargeCapacity": "43120", "ChargeStatus": "1", "AC/DC mode": "AC", "RemainingTime": "3360"})",
       R"({"source": "AC", "percentage": 75, "level": "high", "charging": true})"},
      {"two", discharging + R"(, {"Id": "BAT1", "DeviceName": "CELL-22X", "Manufacturer": "Zeta", "Chemistry": "Li-ion",
        "DesignChargeCapacity": "24050", "BatteryChargeRemaining": "100", "RemainingCapacity": "22990",
        "FullChargeCapacity": "22990", "CycleCount": "41", "AC/DC mode": "DC"})",
       R"({"source": "battery", "percentage": 75, "level": "high", "charging": false})"},
      {"usb-pd", std::string("{") + cell + R"(, "ChargeStatus": "1", "AC/DC mode": "AC", "RemainingTime": "7789"})",
       R"({"source": "AC", "percentage": 63, "level": null, "charging": true})"},
      {"mouse", "", R"({"source": null, "percentage": null, "level": null, "charging": false})"},
      {"desktop", "", R"({"source": "AC", "percentage": null, "level": null, "charging": false})"},
      {"old-kernel", std::string(discharging).replace(discharging.find("BAT0"), 4, "BAT1"),
       R"({"source": "battery", "percentage": 63, "level": null, "charging": false})"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.record);
    std::stringstream text("{\"batteries\": [" + row.batteries + "]}");
    Json::Value expected;
    text >> expected;
    Json::Value found = Inspect(row.record, "battery");
    for (Json::Value& battery : found["batteries"]) {
      // Hashed: nothing of what the record has.
      Json::Value serial_number;
      EXPECT_EQ(battery.removeMember("SerialNumber", &serial_number), row.record != std::string("charge"));
      EXPECT_EQ(serial_number.asString().find("CELL"), std::string::npos);
    }
    EXPECT_EQ(found, expected);
    std::stringstream power(row.power);
    power >> expected;
    found = Inspect(row.record, "power");
    Json::Value batteries;
    EXPECT_TRUE(found.removeMember("batteries", &batteries));
    EXPECT_EQ(batteries, Inspect(row.record, "battery")["batteries"]);
    EXPECT_EQ(found, expected);
  }
}

}  // namespace

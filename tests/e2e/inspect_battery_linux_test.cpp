// What tvkctl reads under umockdev, which shows a program the power supplies of another machine in the place of its
// own.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <map>
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

/// A section of what upower prints: its texts by their names. "kind" is "battery" or "line-power".
using Section = std::map<std::string, std::string>;

/// What upower reads on the machine of a record: a section of each of its devices, and one of its daemon.
std::vector<Section> ReadByUpower(const std::filesystem::path& record) {
  ChildProcess program(FromSourceTree("tests/e2e/batteries/read-by-upower"), {record.string()});
  EXPECT_EQ(program.WaitForEnd(std::chrono::seconds(30)), 0);
  std::vector<Section> sections;
  for (const std::string& line : program.Lines()) {
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t colon = line.find(": ");
    if (line.starts_with("Device:") || line.starts_with("Daemon:")) {
      sections.emplace_back();
    } else if (!sections.empty() && colon != line.npos) {
      sections.back()[line.substr(begin, colon - begin)] =
          line.substr(std::min(line.find_first_not_of(' ', colon + 1), line.size()));
    } else if (!sections.empty() && begin == 2) {
      sections.back()["kind"] = line.substr(begin);
    }
  }
  return sections;
}

/// "47.31 Wh" in mWh, "63%" as it is.
std::string Figure(const std::string& text) {
  return std::to_string(std::llround(std::stod(text) * (text.ends_with("Wh") ? 1000 : 1)));
}

/// As upower words it, to a tenth of its unit.
std::string TimeText(double seconds) {
  constexpr double kMinute = 60;
  constexpr double kHour = 60 * kMinute;
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << seconds / (seconds < kHour ? kMinute : kHour)
       << (seconds < kHour ? " minutes" : " hours");
  return text.str();
}

/// The battery as tvkctl shows it, without its serial number and its remaining time.
Json::Value BatteryOf(const Section& device, bool on_battery) {
  const std::map<std::string, const char*> chemistries = {{"lithium-polymer", "Li-poly"}, {"lithium-ion", "Li-ion"}};
  Json::Value battery;
  battery["Id"] = device.at("native-path");
  battery["Manufacturer"] = device.at("vendor");
  battery["DeviceName"] = device.at("model");
  battery["Chemistry"] = chemistries.at(device.at("technology"));
  battery["DesignChargeCapacity"] = Figure(device.at("energy-full-design"));
  battery["FullChargeCapacity"] = Figure(device.at("energy-full"));
  battery["RemainingCapacity"] = Figure(device.at("energy"));
  battery["BatteryChargeRemaining"] = Figure(device.at("percentage"));
  battery["AC/DC mode"] = on_battery ? "DC" : "AC";
  if (device.at("charge-cycles") != "N/A") battery["CycleCount"] = device.at("charge-cycles");
  if (device.at("state") == "discharging") battery["ChargeStatus"] = "0";
  if (device.at("state") == "charging") battery["ChargeStatus"] = "1";
  return battery;
}

TEST(InspectBatteryTest, UpowerReadsTheSameOfEveryRecord) {
  int batteries = 0;
  for (const auto& file : std::filesystem::directory_iterator(FromSourceTree("tests/e2e/batteries"))) {
    if (file.path().extension() != ".umockdev") continue;
    const std::string record = file.path().stem().string();
    SCOPED_TRACE(record);
    const std::vector<Section> sections = ReadByUpower(file.path());
    ASSERT_FALSE(sections.empty());
    const bool on_battery = sections.back().at("on-battery") == "yes";
    Json::Value expected(Json::arrayValue);
    std::map<std::string, std::string> times;
    for (const Section& device : sections) {
      // What drives the machine: a mouse's battery does not. The sum of them all has no path.
      if (!device.contains("native-path") || device.at("power supply") != "yes") continue;
      if (device.at("kind") != "battery") continue;
      expected.append(BatteryOf(device, on_battery));
      for (const char* const time : {"time to empty", "time to full"}) {
        if (device.contains(time)) times[device.at("native-path")] = device.at(time);
      }
    }
    batteries += static_cast<int>(expected.size());
    const Json::Value power = Inspect(record.c_str(), "power");
    Json::Value found = power["batteries"];
    for (Json::Value& battery : found) {
      battery.removeMember("SerialNumber");
      Json::Value time;
      const bool has_time = battery.removeMember("RemainingTime", &time);
      EXPECT_EQ(has_time ? TimeText(std::stod(time.asString())) : "", times[battery["Id"].asString()]);
    }
    EXPECT_EQ(found, expected);
    // Without any supply that tells, upower takes mains for granted; nobody knows, here.
    if (!power["source"].isNull()) {
      EXPECT_EQ(power["source"].asString(), on_battery ? "battery" : "AC");
    }
    const Section& all = sections[sections.size() - 2];
    if (all.at("power supply") == "yes") {
      EXPECT_EQ(power["percentage"].asInt(), static_cast<int>(std::stod(all.at("percentage"))));
    }
  }
  EXPECT_EQ(batteries, 9);
}

TEST(InspectBatteryTest, RecordedMachinesAreRead) {
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
      {"both-units", discharging, R"({"source": "battery", "percentage": 63, "level": null, "charging": false})"},
      {"negative-current", R"({"Id": "BAT0", "DeviceName": "PACK 2S2P", "Manufacturer": "Zeta Power",
        "Chemistry": "Li-ion", "DesignChargeCapacity": "46200", "BatteryChargeRemaining": "75",
        "RemainingCapacity": "32340", "FullChargeCapacity": "43120", "ChargeStatus": "0", "AC/DC mode": "DC",
        "RemainingTime": "10080"})",
       R"({"source": "battery", "percentage": 75, "level": "high", "charging": false})"},
      {"full", R"({"Id": "BAT0", "DeviceName": "CELL-57A", "Manufacturer": "Acme", "Chemistry": "Li-poly",
        "DesignChargeCapacity": "50500", "BatteryChargeRemaining": "100", "RemainingCapacity": "47310",
        "FullChargeCapacity": "47310", "CycleCount": "213", "AC/DC mode": "AC"})",
       R"({"source": "AC", "percentage": 100, "level": "high", "charging": false})"},
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
      const bool has_none = row.record == std::string("charge") || row.record == std::string("negative-current");
      EXPECT_NE(battery.removeMember("SerialNumber", &serial_number), has_none);
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

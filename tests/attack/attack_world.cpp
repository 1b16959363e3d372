#include "tests/attack/attack_world.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <set>

#include "client/records/record_text.h"
#include "platform/files.h"

namespace {

constexpr char kPolicy[] = R"({"telemetryScope": "full", "datasets": [
  {"id": "9492447A-FCAC-428E-B7A8-7F7918199480", "name": "CPUEvent",
   "settings": {"ReadUsageInterval": "1m", "CPUPeakThreshold": "1"}},
  {"id": "A65D4288-B384-45EC-8EE5-2DC5E81A7C8C", "name": "SystemBIOSEvent"},
  {"id": "3267A6D2-D6FD-4C29-87E7-9BF83E459C29", "name": "MemoryEvent", "settings": {"ReadUsageInterval": "1m"}}]})";

constexpr std::size_t kDatasets = 3;  // of the policy

Json::Value Parse(const std::string& json) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  reader->parse(json.data(), json.data() + json.size(), &value, nullptr);
  return value;
}

/// A line of the console that begins a record: it begins with its date.
bool BeginsRecord(const std::string& line) {
  return line.size() > 19 && line.starts_with("20") && line[4] == '-' && line[13] == ':';
}

std::size_t StoresSetAside(const std::filesystem::path& folder) {
  std::error_code error;
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name.find(".corrupt-") != name.npos && !name.ends_with("-wal") && !name.ends_with("-shm")) ++count;
  }
  return count;
}

}  // namespace

Environment::Environment(const Variables& values) {
  for (const auto& [name, value] : values) {
    ::setenv(name.c_str(), value.c_str(), 1);
    names_.push_back(name);
  }
}

Environment::~Environment() {
  for (const std::string& name : names_)
    ::unsetenv(name.c_str());
}

Findings& Findings::operator+=(const Findings& other) {
  lost += other.lost;
  dangling += other.dangling;
  set_aside += other.set_aside;
  unreadable += other.unreadable;
  unshown += other.unshown;
  no_init += other.no_init;
  return *this;
}

Target::Target()
    : tree_{{"/proc/stat", "cpu 1 0 0 9\nbtime 1700000000\n"},
            {"/proc/cpuinfo", "processor : 0\nmodel name : Recorded\n"},
            {"/proc/meminfo", "MemTotal: 8000000 kB\nMemFree: 4000000 kB\nMemAvailable: 5000000 kB\n"},
            {"/sys/devices/system/cpu/online", "0\n"},
            {"/sys/class/dmi/id/bios_version", "1.23\n"},
            {"/sys/class/dmi/id/sys_vendor", "Contoso\n"}} {
  SetRegion("DE");
  folder_.WritePolicy(kPolicy);
}

void Target::SetRegion(const std::string& country) const {
  tree_.Write("/etc/default/locale", "LANG=de_" + country + ".UTF-8\n");
}

void Target::SetDevicePath(const std::string& path) {
  device_path_ = path;
  const std::filesystem::path file = folder_.policy().parent_path() / "client-policy.json";
  EXPECT_EQ(platform::ReplaceFile(file, R"({"devicePath": ")" + path + R"("})"), "");
}

void Target::ChangePolicy() const {
  std::string policy = kPolicy;
  policy.replace(policy.find(R"("1m")"), 4, R"("2m")");
  folder_.WritePolicy(policy);
}

std::vector<std::string> Target::Life(int milliseconds) const {
  std::vector<std::string> arguments =
      folder_.Arguments({"--for", std::to_string(milliseconds) + "ms", "--sysroot", tree_.root().string()});
  arguments.insert(arguments.begin(), "--console");
  return arguments;
}

void Target::NoteShown(const std::vector<std::string>& lines) {
  std::ranges::copy_if(lines, std::back_inserter(shown_), BeginsRecord);
}

void Target::TakeOver(const Target& other) {
  // Its files alone: below it lie logs, and the pipes of named events.
  std::filesystem::copy(other.folder_.data(), folder_.data());
  shown_ = other.shown_;
}

int Target::Live(int milliseconds, const Variables& environment) {
  std::vector<std::string> lines;
  const int code = RunToEnd("TVKClientService", Life(milliseconds), environment, lines);
  NoteShown(lines);
  return code;
}

Findings Target::Look() const {
  Findings findings;
  findings.set_aside = StoresSetAside(folder_.data());
  std::string problem;
  std::vector<TVK::StoredRecord> records;
  const auto take = [&](std::span<const TVK::StoredRecord> some) {
    records.insert(records.end(), some.begin(), some.end());
    return true;
  };
  const auto reader = TVK::RecordReader::Open(folder_.data() / TVK::kStoreFileName, problem);
  if (reader == nullptr || !reader->Read({}, take, problem)) {
    ++findings.unreadable;
    return findings;
  }
  std::multiset<std::string> lines;
  std::set<std::string> contexts = {""};
  std::set<std::string> contexts_of_path;
  std::set<std::string> begun;  // datasets that have their DeviceInit
  for (const TVK::StoredRecord& record : records) {
    const std::string text = TVK::RecordTableLine(record.kind, record.json);
    lines.insert(text.substr(0, text.find('\n')));
    const Json::Value value = Parse(record.json);
    if (record.kind == TVK::RecordKind::kDevice) {
      contexts.insert(value["device_context_id"].asString());
      if (value["device_info"]["device_path"].asString() == device_path_)
        contexts_of_path.insert(value["device_context_id"].asString());
    }
    if (record.kind == TVK::RecordKind::kDataset) contexts.insert(value["dataset_context_id"].asString());
  }
  for (const TVK::StoredRecord& record : records) {
    if (record.kind == TVK::RecordKind::kDevice) continue;
    const Json::Value value = Parse(record.json);
    const bool whole = contexts.contains(value["device_context_id"].asString()) &&
                       contexts.contains(value["dataset_context_id"].asString());
    if (!whole) ++findings.dangling;
    if (value["item_name"] == "DeviceInit" && contexts_of_path.contains(value["device_context_id"].asString())) {
      begun.insert(value["dataset_id"].asString());
    }
  }
  if (!device_path_.empty()) findings.no_init = kDatasets - begun.size();
  if (findings.set_aside != 0) return findings;
  for (const std::string& line : shown_) {
    const auto found = lines.find(line);
    if (found == lines.end()) {
      ++findings.lost;
      std::cout << "lost: " << line << '\n';
    } else {
      lines.erase(found);
    }
  }
  findings.unshown = lines.size();
  return findings;
}

std::vector<std::string> WordsFor(const std::string& program, const std::vector<std::string>& arguments,
                                  const Variables& environment) {
  std::vector<std::string> words;
  for (const auto& [name, value] : environment)
    words.push_back(name + '=' + value);
  words.push_back(ProgramBeside(program));
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

int RunToEnd(const std::string& program, const std::vector<std::string>& arguments, const Variables& environment,
             std::vector<std::string>& lines) {
  ChildProcess process("/usr/bin/env", WordsFor(program, arguments, environment));
  const std::optional<int> code = process.WaitForEnd(kPatience);
  EXPECT_TRUE(code.has_value()) << program << " does not end";
  lines = process.Lines();
  return code.value_or(-1);
}

Variables ShimFor(const Target& target, const std::string& fault, const std::string& names) {
  const std::filesystem::path data = target.folder().data();
  const std::filesystem::path beside = data.parent_path();
  return {{"LD_PRELOAD", (ProgramBeside("fault_shim").parent_path() / "libtvk_fault_shim.so").string()},
          {"TVK_FAULT_ROOT", (data / names).string()},
          {"TVK_FAULT", fault},
          {"TVK_FAULT_MARK", (beside / "reached").string()},
          {"TVK_FAULT_SWITCH", SwitchOf(target).string()}};
}

std::filesystem::path SwitchOf(const Target& target) {
  return target.folder().policy().parent_path() / "switch";
}

bool Reached(const Target& target) {
  return std::filesystem::exists(target.folder().policy().parent_path() / "reached");
}

void Report(const std::string& campaign, std::size_t rounds, const Findings& findings) {
  std::cout << "attack  " << campaign << ": " << rounds << " rounds, lost " << findings.lost << " (0), dangling "
            << findings.dangling << " (0), intact stores set aside " << findings.set_aside << " (0), unreadable "
            << findings.unreadable << " (0), missing DeviceInit " << findings.no_init << " (0)" << std::endl;
  EXPECT_EQ(findings.lost, 0u);
  EXPECT_EQ(findings.dangling, 0u);
  EXPECT_EQ(findings.set_aside, 0u);
  EXPECT_EQ(findings.unreadable, 0u);
  EXPECT_EQ(findings.no_init, 0u);
}

std::uint64_t Asked(const char* name, std::uint64_t standard) {
  const char* const text = std::getenv(name);
  return text == nullptr ? standard : std::strtoull(text, nullptr, 10);
}

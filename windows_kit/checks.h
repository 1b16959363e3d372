// What only a real Windows shows: each check is one claim that our code relies on, confirmed or refuted by the machine
// that it runs on. A check changes nothing of the machine but what it makes and takes away itself.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "windows_kit/kit_report.h"

namespace windows_kit {

enum class Needs {
  kNothing,
  kAdministrator,  ///< An elevated process.
  kPerson,         ///< Somebody who does what `how` says; the kit only lists it.
};

struct Check {
  std::string_view name;
  std::string_view claim;
  Finding (*run)() = nullptr;  ///< Null of those that need a person.
  Needs needs = Needs::kNothing;
  std::string_view how = {};
};

std::span<const Check> FileChecks();
std::span<const Check> AccessChecks();
std::span<const Check> EventLogChecks();
std::span<const Check> HardwareChecks();
std::span<const Check> SessionChecks();
std::span<const Check> ServiceChecks();
std::span<const Check> ChecksForPersons();

inline Finding Judge(bool holds, std::string seen) {
  return {holds ? Verdict::kConfirmed : Verdict::kRefuted, std::move(seen)};
}
inline Finding CannotTell(std::string why) {
  return {Verdict::kCannotTell, std::move(why)};
}

/// The service's side of ServiceChecks, started by the service manager; the process's exit code.
int RunAsService();

}  // namespace windows_kit

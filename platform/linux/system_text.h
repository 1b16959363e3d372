// Decoders of the texts in /etc and /run/systemd that describe the system and its users. Pure functions; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

using Assignments = std::map<std::string, std::string, std::less<>>;

/// The lines NAME=value of os-release(5), locale.conf(5) and the session files of systemd: values may stand in single
/// or double quotes, a backslash takes its meaning from a special character, "#" begins a comment line. The last
/// assignment of a name stands; a line that is no assignment, or whose quotes do not end on it, is left out.
Assignments DecodeAssignments(std::string_view text);

/// The first of `names` with a value that is not empty; empty when none has.
std::string FirstValue(const Assignments& assignments, std::initializer_list<std::string_view> names);

struct Locale {
  std::string tag;        ///< "de-DE". Empty for the C and POSIX locales and for what is no locale name.
  std::string territory;  ///< "DE". Empty where the name has none.
};

/// From a name as locale(7) has it, "de_DE.UTF-8@euro".
Locale DecodeLocaleName(std::string_view name);

/// "Europe/Berlin" from where /etc/localtime points; empty when that is no place in a zoneinfo folder.
std::string TimeZoneOfLink(std::string_view target);

/// `text` when it is a machine id (32 small hexadecimal digits, machine-id(5)), else empty.
std::string MachineIdOf(std::string_view text);

/// The number of the user of a session file when the session is an active one of a person who sits at the machine, and
/// whether it has a seat (a screen of its own) there.
struct SessionUser {
  std::string user_id;
  bool has_seat = false;
};
std::optional<SessionUser> DecodeSession(std::string_view text);

}  // namespace platform

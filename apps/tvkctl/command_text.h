// Command lines that a person is told to use, for the places that this one was given.
#pragma once

#include <filesystem>
#include <string>

namespace tvkctl {

/// "tvkctl", with the data folder where it is another one than the default.
std::string CommandFor(const std::filesystem::path& data_folder);

/// " --policy FILE" where it is another one than the default (UTF-8); else empty.
std::string PolicyOption(const std::string& policy_file);

/// That starts a service in the foreground over these places.
std::string ConsoleCommand(const std::filesystem::path& policy_file, const std::filesystem::path& data_folder);

}  // namespace tvkctl

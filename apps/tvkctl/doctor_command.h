// `tvkctl doctor`: gathers what the doctor looks at, and writes what was found.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <string>

#include "apps/tvkctl/output.h"
#include "core/dataset_table.h"
#include "platform/machine.h"
#include "platform/runtime.h"

namespace tvkctl {

struct DoctorOptions {
  std::filesystem::path place;        ///< Where the service is reached; see platform::ChannelPlace.
  std::filesystem::path data_folder;  ///< Whose disk is looked at.
  std::filesystem::path policy_file;  ///< Of a service that does not tell.
  std::string dataset;                ///< Its name, UTF-8, ASCII case aside. Empty: all that run.
  bool json = false;
  std::size_t width = kAnyWidth;  ///< Cells of a line.
};

/// 0: nothing is wrong; 1: there is no dataset of that name; 3: the service does not answer; 4: something else is
/// wrong.
int RunDoctor(const DoctorOptions& options, const TVK::DatasetTable& table,
              const std::shared_ptr<platform::Machine>& machine, platform::Runtime& runtime, std::ostream& out,
              std::ostream& errors);

}  // namespace tvkctl

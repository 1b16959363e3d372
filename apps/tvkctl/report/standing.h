// What is to be recorded, beside what was: the service's own word, or what its files tell.
#pragma once

#include <json/value.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/policy/eligibility_filter.h"
#include "core/dataset_table.h"
#include "platform/runtime.h"

namespace tvkctl {

/// Texts are UTF-8, for people.
struct DatasetStanding {
  std::string name;
  std::string state;  ///< "runs", "-" and so on; of a service that does not answer "to run" stands for "runs".
  std::string why;
};

struct Standing {
  bool answered = false;       ///< By the service; else what follows is what its files tell.
  std::string no_answer = {};  ///< Why not.
  std::optional<bool> up;      ///< Absent: this account may not ask.
  std::string policy_file = {};
  std::string scope = {};    ///< In force; of files the one that would be. Empty: not known.
  std::string problem = {};  ///< What is wrong with the policy file; empty: nothing that is known.
  std::vector<DatasetStanding> datasets = {};
};

struct StandingSources {
  std::filesystem::path place;        ///< Where the service is reached; see platform::ChannelPlace.
  std::filesystem::path data_folder;  ///< Of the copy of the last good policy.
  std::filesystem::path policy_file;
  /// Of this machine, for the filters; asked where the service does not answer.
  std::function<TVK::DeviceTraits()> traits;
};

/// Of what the service tells of itself: a status, or a part of it. Pure.
Standing StandingFromStatus(const Json::Value& status);

/// Asks the service; where it does not answer, reads its policy as it would.
Standing AskStanding(const StandingSources& sources, const TVK::DatasetTable& table, platform::Runtime& runtime);

}  // namespace tvkctl

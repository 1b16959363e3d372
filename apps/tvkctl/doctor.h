// `tvkctl doctor`: from the service to the record, the first thing that is wrong and what mends it.
#pragma once

#include <json/value.h>

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "apps/tvkctl/fact_source.h"
#include "apps/tvkctl/output.h"
#include "core/dataset_table.h"
#include "platform/clock.h"

namespace tvkctl {

/// What the doctor looks at.
struct Symptoms {
  std::optional<Json::Value> status = {};  ///< Of the running service; nothing when it does not answer.
  std::string no_answer = {};              ///< Why not.
  bool refused = false;                    ///< It answers, but tells this account nothing.
  std::string start_command = {};          ///< That starts the service on this system.
  std::filesystem::path policy_file = {};  ///< Of a service that does not tell.
  std::filesystem::path data_folder = {};
  std::optional<std::uint64_t> free_bytes = {};  ///< On its disk; nothing where that is not known.
  std::function<SourceReport(std::wstring_view dataset)> try_source = {};
};

enum class Finding { kFine, kWrong, kUnknown };

/// One link of the chain.
struct Examination {
  std::string_view step;
  Finding finding = Finding::kFine;
  std::string text;  ///< What was found, a line each.
  std::string mend;  ///< Of kWrong: the command that mends it, or what else does. Of kUnknown: what tells more, if any.
};

/// The chain in its order: this account, service, policy, scope and filters, rights, source, clock, store, disk, up to
/// the first that is wrong. `dataset`: the one whose records are missed; null: all that run. Pure but for `try_source`.
std::vector<Examination> Examine(const Symptoms& symptoms, const TVK::Dataset* dataset, const platform::Clock& clock);

/// Writes what was found, for a person or as one JSON object. 0: nothing is wrong; 4: something is; 3: the service does
/// not answer. `width`: cells of a line.
int WriteDiagnosis(const std::vector<Examination>& chain, bool json, std::ostream& out, std::size_t width = kAnyWidth);

}  // namespace tvkctl

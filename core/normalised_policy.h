// A telemetry policy brought into the one form that everybody decides by: the service, and the tools that say what it
// would do.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/policy/telemetry_policy.h"
#include "core/dataset_table.h"

namespace TVK {

/// What an entry of a policy's list of datasets turned out to mean.
enum class EntryMeaning {
  kCounts,        ///< It is the entry of its dataset.
  kUnknownId,     ///< No dataset has the id.
  kNotSwitched,   ///< Of the device context, which no policy switches.
  kNameMismatch,  ///< Another dataset's name stands beside the id: it means nothing.
  kDuplicate,     ///< An earlier entry counts.
};

/// "unknown id", "not switched", "name mismatch" or "duplicate"; empty for kCounts.
std::string_view MeaningName(EntryMeaning meaning);

struct PolicyEntry {
  EntryMeaning meaning = EntryMeaning::kUnknownId;
  const Dataset* dataset = nullptr;  ///< Of the table; null unless the meaning is kCounts or kDuplicate.
  std::string path;                  ///< "datasets[3]".
  DataSet values;                    ///< As in the policy, but for the id, which has the table's spelling if known.
};

/// A mistake in a policy that leaves the rest of it in use.
struct PolicyFinding {
  std::string path;  ///< "datasets[3].id".
  std::wstring message;
};

struct NormalisedPolicy {
  std::wstring scope = L"none";       ///< "none", "basic", "enhance" or "full".
  std::wstring unknown_scope;         ///< What stood there when it was none of these, and counts as "none".
  ApplicabilityFilter applicability;  ///< Of the policy as a whole.
  bool no_hash_network_data = false;  ///< Its setting of this name.
  std::vector<PolicyEntry> entries;   ///< All, in the order of the policy.
  std::vector<PolicyFinding> findings;

  /// The entry that counts for the dataset of this id (in the table's spelling); null: it is not listed.
  const DataSet* SearchUpdatedConfig(std::wstring_view id) const;
  /// The first entry that has the id of this dataset (in the table's spelling) beside another name; null: there is
  /// none.
  const PolicyEntry* FindMismatch(std::wstring_view id) const;
};

/// The scope that `text` means: one of the four in small letters. Consent that nobody understands is "none".
std::wstring NormalisedScope(const std::wstring& text);
/// Whether the one of two telemetry scopes, as NormalisedScope gives them, consents to less than the other. Not for one
/// that is empty.
bool IsNarrowerScope(const std::wstring& scope, const std::wstring& than);

/// Of an entry of kNameMismatch, for people: under which name its id stands.
std::wstring ExplainMismatch(const PolicyEntry& entry);

/// Pure. An entry means the dataset whose id occurs in the entry's id, case aside, and whose name it has exactly; the
/// first such entry counts. `table` must outlive the result.
NormalisedPolicy Normalise(const TelemetryPolicy& policy, const DatasetTable& table);

/// All entries in the order in which datasets are started: by the ranks of their datasets; those that belong to none
/// have the rank 0. Entries of equal rank keep their order. Pointers into `policy`.
std::vector<const PolicyEntry*> OrderDatasets(const NormalisedPolicy& policy);

}  // namespace TVK

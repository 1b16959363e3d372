// The contexts that this run of the process refers to, or may begin to refer to: those that it wrote, tried to write,
// or was given by the store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/store/record_row.h"

namespace TVK {

struct Erasure;

/// What the store owes to them: retention leaves them alone, one that is not in the file yet is written ahead of the
/// next record, and a file that is begun anew is given them all. Contexts without an id cannot be referred to and are
/// not kept.
///
/// One that was written in this run goes when two newer ones of its series were (dataset and device; for device
/// contexts all are one series), and so does one that was given: whoever still held it has changed to a newer one, and
/// the one before the newest stays for records that are on their way. A device context stays as long as a dataset
/// context here names it. What was only given stays until then, at most a list of earlier contexts for each dataset.
/// Any thread.
class KnownContexts {
 public:
  /// A context that was written, or could not be: `sequence` is its place in the file, 0 when it is not in it.
  void NoteWritten(const RecordRow& row, std::int64_t sequence);
  /// One that the store gave. Those that are known already stay as they are.
  void NoteGiven(RecordRow row, std::int64_t sequence);
  /// One that turned out to name a context that nobody has.
  void Forget(RecordKind kind, const std::string& context_id);

  std::optional<RecordRow> Get(RecordKind kind, const std::string& context_id) const;

  /// The newest that is known of a dataset's device, of any of its devices without `key`, and for the kind kDevice of
  /// all; only such as are not in the file when `only_unwritten`.
  std::optional<RecordRow> Newest(RecordKind kind, const std::string& dataset_id, const std::optional<std::string>& key,
                                  bool only_unwritten) const;

  /// Those that are not in the file, in the order in which they are to be written: device contexts first, since the
  /// others refer to them, older ones ahead of newer ones.
  /// One that was erased is among them only when it is in `named`, the ids that records to be written name.
  std::vector<RecordRow> Unwritten(std::set<std::string> named = {}) const;
  /// The places of the others.
  std::vector<std::int64_t> Sequences() const;

  /// After the file was opened again, perhaps another one: asks of each context where it stands in it (0: nowhere).
  using Find = std::function<std::int64_t(RecordKind kind, const std::string& context_id)>;
  void Locate(const Find& find);
  /// The same after an erasure: those that are gone are to stay away until a record names them, and so are those that
  /// wait to be written and would have gone.
  void NoteErased(const Find& find, const Erasure& erasure);

 private:
  struct Entry {
    RecordRow row;
    std::int64_t age = 0;       ///< The larger, the newer. Below 0: given, from before this run.
    std::int64_t sequence = 0;  ///< Where it stands in the file; 0: it does not.
    bool erased = false;        ///< It went with an erasure.
  };
  std::size_t IndexOf(RecordKind kind, const std::string& context_id) const;  ///< The number of entries: unknown.
  void DropSuperseded(const RecordRow& newest);

  mutable std::mutex mutex_;  ///< Guards what follows.
  std::vector<Entry> entries_;
  std::int64_t next_age_ = 0;
};

}  // namespace TVK

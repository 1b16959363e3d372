// What is wrong with a source that is asked again and again: logged as it begins and when all of it has ended, not with
// each reading that finds it again.
#pragma once

#include <set>
#include <string>

#include "client/log/log.h"

namespace TVK {

/// The faults of one source. One thread at a time.
class SourceFaults {
 public:
  /// `source` names it in the line that says that nothing fails any more.
  SourceFaults(Log log, std::wstring source);

  /// One fault of the present reading. `line` is logged as an error unless this reading or the one before has the same
  /// `fault`, which nobody else sees: it may hold what no log may.
  void Add(std::wstring fault, const std::wstring& line);
  /// The reading is over. Not for one to which the source did not answer: that says nothing of its faults.
  void EndReading();

 private:
  const Log log_;
  const std::wstring source_;
  std::set<std::wstring> known_;  ///< Of the reading before.
  std::set<std::wstring> found_;  ///< Of the present one.
};

}  // namespace TVK

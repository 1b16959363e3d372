#include "client/battery/source_faults.h"

#include <utility>

namespace TVK {

SourceFaults::SourceFaults(Log log, std::wstring source) : log_(std::move(log)), source_(std::move(source)) {}

void SourceFaults::Add(std::wstring fault, const std::wstring& line) {
  const bool known = known_.contains(fault);
  if (found_.insert(std::move(fault)).second && !known) log_.e(L"%s", line);
}

void SourceFaults::EndReading() {
  if (found_.empty() && !known_.empty()) log_.i(L"%s: it works again", source_);
  known_ = std::exchange(found_, {});
}

}  // namespace TVK

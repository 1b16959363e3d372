// Which interruptions of the event logs were told behind one place in them, as the store keeps it: a reader that begins
// at the same place once more meets them once more. Pure; any thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace TVK {

class ToldInterruptions {
 public:
  /// What `kept`, the Text of an earlier one, says of `place`; nothing where it is of another place, or no such text.
  ToldInterruptions(const std::wstring& kept, const std::wstring& place);

  /// How many lost events were told with `what`, "gap System", 0 of an unknown number; nothing: it was not told.
  std::optional<std::uint64_t> Lost(const std::wstring& what) const;
  /// `what` was told, which has no tab and no line end; the larger number counts.
  void Add(const std::wstring& what, std::uint64_t lost) { told_[what] = std::max(told_[what], lost); }

  std::wstring Text() const;

 private:
  std::wstring place_;
  std::map<std::wstring, std::uint64_t> told_;
};

}  // namespace TVK

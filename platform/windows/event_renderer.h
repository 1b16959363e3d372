// What the event log's service tells of an event, as values and texts.
#pragma once

#include <string>
#include <vector>

#include "platform/event_log.h"
#include "platform/windows/owner.h"

namespace platform::windows {

/// How long a call waits for the log's service; a busy one answers within a second.
inline constexpr DWORD kLongestLogWaitMs = 10'000;

/// Its operations give 0 or the error; nothing is told then. They throw std::bad_alloc. One thread at a time.
class EventRenderer {
 public:
  /// Before Values: what of each event is wanted, "Event/System/Level".
  DWORD Open(const std::vector<std::string>& value_paths);

  /// One value for each path.
  DWORD Values(EVT_HANDLE event, std::vector<EventLogValue>& values);
  DWORD Xml(EVT_HANDLE event, std::string& xml);
  /// Of a bookmark: its XML, without line ends.
  DWORD Bookmark(EVT_HANDLE bookmark, std::string& xml);

 private:
  DWORD Render(EVT_HANDLE context, EVT_HANDLE fragment, DWORD flags);
  std::string Text() const;

  UniqueEventLogHandle context_;
  std::size_t paths_ = 0;
  std::vector<std::uint64_t> buffer_ = std::vector<std::uint64_t>(512);  ///< 8-byte units, aligned for EVT_VARIANT.
  DWORD used_ = 0;                                                       ///< Bytes of the last rendering.
  DWORD count_ = 0;                                                      ///< Its values.
};

}  // namespace platform::windows

// A log whose medium may refuse lines, as a full disk does.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "client/log/log.h"

namespace TVK {

/// Neither ends nor holds up who writes: a line that is refused is counted, an error line besides given to the way out,
/// and the next line that is taken follows one that tells the number. Any thread.
class LossCountingSink final : public LogSink {
 public:
  /// Writes one line, UTF-8, to the medium; throws a std::exception when it is refused. Called by one thread at a time.
  using Medium = std::function<void(LogSeverity severity, const std::string& line)>;
  /// Takes error lines that the medium refuses; must neither throw nor wait. Called by one thread at a time.
  using WayOut = std::function<void(const std::string& line)>;

  LossCountingSink(Medium medium, WayOut way_out) : medium_(std::move(medium)), way_out_(std::move(way_out)) {}

  void Write(LogSeverity severity, std::wstring_view message) override;

 private:
  const Medium medium_;
  const WayOut way_out_;
  std::mutex mutex_;        // guards lost_ and is held while the functions run
  std::uint64_t lost_ = 0;  // lines since the last one that was written
};

}  // namespace TVK

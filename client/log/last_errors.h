// The last error of each log, for a person who asks how things stand.
#pragma once

#include <memory>
#include <string>

#include "client/log/log.h"

namespace TVK {

/// A backend that passes everything on to another one and remembers the last error line of each log. Any thread.
class LastErrors final : public LogBackend {
 public:
  explicit LastErrors(std::shared_ptr<LogBackend> inner);
  ~LastErrors() override;

  std::shared_ptr<LogSink> Open(const std::wstring& file_name) override;

  /// Empty when there was none.
  std::wstring Of(const std::wstring& file_name) const;

 private:
  struct Lines;
  const std::shared_ptr<LogBackend> inner_;
  const std::shared_ptr<Lines> lines_;  ///< Shared with the sinks, which may outlive the object.
};

}  // namespace TVK

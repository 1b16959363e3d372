#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/log/log.h"

/// Takes the lines of every log that is opened while it lives, in the place of the process's backend. Any thread.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The lines so far, in the order of writing, without file and severity.
  std::vector<std::wstring> Lines() const;
  /// How many lines hold `text`.
  std::size_t Count(const std::wstring& text) const;
  bool Has(const std::wstring& text) const { return Count(text) > 0; }
  void Clear();

 private:
  class Backend;
  std::shared_ptr<Backend> backend_;
};

#include "client/log/loss_counting_sink.h"

#include <exception>

#include "client/text/string.h"

namespace TVK {

void LossCountingSink::Write(LogSeverity severity, std::wstring_view message) {
  const std::string line = String::UTF16ToUTF8(message);
  const std::lock_guard lock(mutex_);
  try {
    if (lost_ > 0) {
      medium_(LogSeverity::kError, std::to_string(lost_) + " lines before this one could not be written");
      lost_ = 0;
    }
    medium_(severity, line);
  } catch (const std::exception&) {
    ++lost_;
    if (severity == LogSeverity::kError) way_out_(line);
  }
}

}  // namespace TVK

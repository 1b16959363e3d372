#include "platform/linux/processor_load.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/linux/proc_text.h"
#include "platform/linux/unique_fd.h"

namespace platform {
namespace {

constexpr std::chrono::milliseconds kLeastSpan(100);

/// The times of now, or the errno.
struct TimesReading {
  std::optional<ProcessorTimes> times;
  int error = 0;
};

TimesReading ReadTimes(int descriptor) {
  std::array<char, 256> first_line;  // Ten numbers of 20 digits at most.
  ssize_t count = 0;
  do {
    count = ::pread(descriptor, first_line.data(), first_line.size(), 0);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return {{}, errno};
  const auto times = DecodeProcessorTimes({first_line.data(), static_cast<std::size_t>(count)});
  return {times, times ? 0 : EBADMSG};
}

class ProcStatReader final : public ProcessorLoadReader {
 public:
  ProcStatReader(UniqueFd stat, ProcessorTimes times, const Clock& clock)
      : stat_(std::move(stat)), clock_(clock), times_(times), read_at_(clock.Steady()) {}

  std::optional<std::int32_t> Sample() override {
    const SteadyTime now = clock_.Steady();
    if (now - read_at_ < kLeastSpan) return last_;
    const auto times = ReadTimes(stat_.get()).times;
    last_ = times ? BusyPercent(times_, *times) : std::nullopt;
    if (times) times_ = *times;
    read_at_ = now;
    return last_;
  }

 private:
  UniqueFd stat_;
  const Clock& clock_;
  ProcessorTimes times_;  ///< Of the last reading that could be decoded.
  SteadyTime read_at_;    ///< When the file was read last.
  std::optional<std::int32_t> last_;
};

}  // namespace

ProcessorLoadOpening OpenProcessorLoad(const std::filesystem::path& stat, const Clock& clock) {
  // Of a recorded tree it may be anything; to open a pipe would wait for its writer.
  UniqueFd descriptor(::open(stat.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!descriptor) return {nullptr, errno};
  const TimesReading first = ReadTimes(descriptor.get());
  if (!first.times) return {nullptr, first.error};
  return {std::make_unique<ProcStatReader>(std::move(descriptor), *first.times, clock), 0};
}

}  // namespace platform

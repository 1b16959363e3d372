// What is remembered of one attached drive, for all who ask it: one at a time, and none for a while after it hung.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "client/log/limited_calls.h"
#include "client/log/log.h"
#include "platform/drives.h"

namespace StorageCollector {

/// Why a drive did not tell.
enum class Silence {
  kNone,
  kNoRight,       ///< The process may not ask it.
  kNotSupported,  ///< The drive, its driver or the bridge before it does not know the command.
  kAsleep,        ///< It would have to be woken.
  kHung,          ///< It did not answer in time.
  kLeftAlone,     ///< It did not answer lately, or somebody else asks it at present.
  kStopped,       ///< Whoever asked is stopping.
  kGone,
  kRefused,  ///< The drive knows the command and said no.
  kDamaged,  ///< What it told is no page of that kind.
  kFailed,
};

/// In a few words, "it is asleep".
std::wstring Words(Silence silence);

/// What a drive told, or why it did not.
template <typename Content>
struct Reading {
  std::optional<Content> content = {};
  Silence silence = Silence::kNone;  ///< kNone where there is content.
  std::uint32_t error = 0;           ///< As platform::DriveAnswer has it.
};

/// What a drive says of itself; the system's listing stands in for what it does not say.
struct DriveIdentity {
  std::wstring model;
  std::wstring serial_number;  ///< In clear.
  std::wstring firmware_version;
  std::optional<bool> rotating;
  bool is_ata = false;  ///< It speaks ATA, whatever bus is on the way.
  bool smart_supported = false;
  bool assumed = false;  ///< The drive's own answers made no sense, so all of it is the system's. It is asked again.
};

/// Any thread.
class DriveLane {
 public:
  /// How long a drive that hung is left alone.
  static constexpr std::chrono::hours kRest{1};
  /// How long somebody waits for the few commands of one session: a drive that turns needs some seconds where it was
  /// about to sleep. What takes longer goes on without him.
  static constexpr std::chrono::seconds kSessionLimit{30};

  /// `path`: of the drive, for the log.
  DriveLane(platform::Runtime& runtime, const TVK::Log& log, std::wstring path);
  DriveLane(const DriveLane&) = delete;
  DriveLane& operator=(const DriveLane&) = delete;

  /// What comes of a call, which is waited for until the signal of `stop` (or null); once, and not beyond the lane.
  using Waiting = std::function<Silence(platform::Waitable* stop)>;

  /// Begins `call`, which must own all that it touches, or lets it wait until nobody else asks the drive; see
  /// LimitedCalls. One that is left alone is not asked. kNone when it has run. A drive that does not come back within
  /// kSessionLimit rests.
  Waiting Begin(std::function<void()> call, std::chrono::milliseconds limit);

  /// Leaves the drive alone for kRest.
  void Rest();

  /// What the drive said of itself since it was attached; nothing yet at first, and when it is not known any more.
  std::optional<DriveIdentity> identity() const;
  void set_identity(std::optional<DriveIdentity> identity);
  /// Counts an answer to who the drive is that makes no sense, one a minute; true from the third on, when one that is
  /// busy or was disturbed would have said it.
  bool TakeSenselessIdentity();

  /// Logs why `what` was not told, once until that changes; kNone says that it was.
  void Note(const std::wstring& what, Silence silence, std::uint32_t error);

  /// For one self-test at a time: false while another one has it.
  bool TakeSelfTest();
  void ReturnSelfTest();

 private:
  platform::Runtime& runtime_;
  const TVK::Log log_;
  const std::wstring path_;
  TVK::LimitedCalls calls_;
  mutable std::mutex mutex_;  ///< Guards what follows; held for a look.
  std::optional<platform::SteadyTime> rests_until_;
  std::optional<DriveIdentity> identity_;
  int senseless_identities_ = 0;                      ///< At most as many as count.
  std::optional<platform::SteadyTime> senseless_at_;  ///< When the last one was counted.
  std::map<std::wstring, Silence> noted_;
  bool self_test_taken_ = false;
};

}  // namespace StorageCollector

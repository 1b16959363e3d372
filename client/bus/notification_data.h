// One piece of news on the client's bus.
#pragma once

#include <string>

namespace TVK {

/// The topic of policies, and its states.
inline constexpr int kPolicyTopic = 4;
inline constexpr int kTelemetryPolicyChanged = 14;
inline constexpr int kTvkPolicyChanged = 18;

/// The topic of the power source, and its states.
inline constexpr int kPowerSourceTopic = 11;
inline constexpr int kRunsOnAc = 11;
inline constexpr int kRunsOnOther = 12;  ///< A battery, or a short-term source.

}  // namespace TVK

/// A notification: topic, state and a payload text (JSON). A plain value.
class TVKNotificationData {
 public:
  TVKNotificationData() = default;
  TVKNotificationData(int topic_id, int event_state, std::wstring payload, bool kvq = false);

  /// True for the records of the key-value queue, which share the bus and are not for us.
  bool isKVQNotification() const { return kvq_; }
  int getTopicId() const { return topic_id_; }
  int getEventState() const { return event_state_; }
  std::wstring getPayload() const { return payload_; }

  /// Reads the payload of a policy notification: an object with "devicePath", "deviceSubscription" (texts) and
  /// "isDevicePathChange" (boolean), all optional. False when it is no such object; the three values are then empty and
  /// false.
  bool deserializePayloadForTvkPolicy(const std::wstring& payload);

  const std::wstring& device_path() const { return device_path_; }
  const std::wstring& device_subscription() const { return device_subscription_; }
  bool is_device_path_change() const { return device_path_change_; }

 private:
  int topic_id_ = 0;
  int event_state_ = 0;
  std::wstring payload_;
  bool kvq_ = false;
  std::wstring device_path_;
  std::wstring device_subscription_;
  bool device_path_change_ = false;
};

namespace TVK {

/// The payload that deserializePayloadForTvkPolicy reads.
std::wstring MakeTvkPolicyPayload(const std::wstring& device_path, const std::wstring& device_subscription,
                                  bool device_path_change);

}  // namespace TVK

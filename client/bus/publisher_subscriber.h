// The client's bus: whoever publishes does not wait for whoever listens.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "client/bus/news_publisher.h"
#include "client/bus/notification_data.h"
#include "platform/runtime.h"

/// Delivers notifications on a thread of its own, in the order of publishing, to every subscriber in the order of
/// subscription. A subscriber that throws is logged and does not stop the others. Any thread may call it.
class TVKPublisherSubscriber final : public TVK::NewsPublisher {
 public:
  using Callback = std::function<void(TVKNotificationData&)>;

  /// Starts the delivery thread. `runtime` must outlive the object.
  explicit TVKPublisherSubscriber(platform::Runtime& runtime);
  /// Notifications that were not delivered yet are dropped. Must not be called from a subscriber.
  ~TVKPublisherSubscriber() override;
  TVKPublisherSubscriber(const TVKPublisherSubscriber&) = delete;
  TVKPublisherSubscriber& operator=(const TVKPublisherSubscriber&) = delete;

  /// Returns the subscription's id. `replay_last`: the last notification that was published is delivered to the new
  /// subscriber first.
  std::wstring Subscribe(Callback callback, bool replay_last);

  /// When it returns, the callback is not running and will not run, unless it is the callback that calls. An id that is
  /// not known is passed over.
  void Unsubscribe(const std::wstring& id);

  void Publish(TVKNotificationData data) override;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

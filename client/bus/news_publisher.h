// Where the client's own news is told.
#pragma once

#include "client/bus/notification_data.h"

namespace TVK {

/// Any thread.
class NewsPublisher {
 public:
  NewsPublisher() = default;
  NewsPublisher(const NewsPublisher&) = delete;
  NewsPublisher& operator=(const NewsPublisher&) = delete;
  virtual ~NewsPublisher() = default;

  /// Whoever listens hears it later, on another thread.
  virtual void Publish(TVKNotificationData data) = 0;
};

}  // namespace TVK

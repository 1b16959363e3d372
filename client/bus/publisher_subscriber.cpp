#include "client/bus/publisher_subscriber.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "client/log/guarded_thread.h"
#include "client/log/log.h"
#include "client/log/service_logs.h"
#include "client/text/guid.h"

namespace {

constexpr std::chrono::seconds kRetry(1);

struct Subscription {
  std::wstring id;
  TVKPublisherSubscriber::Callback callback;
};

}  // namespace

class TVKPublisherSubscriber::Impl {
 public:
  explicit Impl(platform::Runtime& runtime)
      : runtime_(runtime),
        work_(runtime.MakeEvent(platform::EventReset::kAuto)),
        delivered_(runtime.MakeEvent(platform::EventReset::kManual, true)) {
    TVK::utility::InitLog(log_, TVK::ServiceLog(L"PublisherSubscriber.log"), 4);
    thread_ = runtime_.StartThread("tvk-bus", [this] { Deliver(); });
  }

  ~Impl() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    work_->Set();
    runtime_.Join(thread_);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  std::wstring Subscribe(Callback callback, bool replay_last) {
    std::wstring id = TVK::Utility::CGuid::NewGuid();
    auto subscription = std::make_shared<const Subscription>(Subscription{id, std::move(callback)});
    const std::lock_guard lock(mutex_);
    if (replay_last && last_.has_value()) {
      queue_.push_back({*last_, subscription});
      work_->Set();
    }
    // Last: nobody could end a subscription of which it does not have the id.
    subscriptions_.push_back(std::move(subscription));
    return id;
  }

  void Unsubscribe(const std::wstring& id) {
    std::unique_lock lock(mutex_);
    std::erase_if(subscriptions_, [&](const auto& one) { return one->id == id; });
    if (std::this_thread::get_id() == delivering_thread_) return;
    while (called_ != nullptr && called_->id == id) {
      lock.unlock();
      runtime_.Wait(*delivered_, platform::kForever);
      lock.lock();
    }
  }

  void Publish(TVKNotificationData data) {
    {
      const std::lock_guard lock(mutex_);
      last_ = data;
      queue_.push_back({std::move(data), nullptr});
    }
    work_->Set();
  }

 private:
  using SubscriptionPtr = std::shared_ptr<const Subscription>;
  struct Delivery {
    TVKNotificationData data;
    SubscriptionPtr only;  // null: everybody who is subscribed when it is delivered
  };

  void Deliver() {
    for (;;) {
      bool idle = false;
      {
        const std::lock_guard lock(mutex_);
        delivering_thread_ = std::this_thread::get_id();
        if (ending_) return;
        idle = queue_.empty();
      }
      if (idle) {
        runtime_.Wait(*work_, platform::kForever);
      } else if (!TVK::CallLogged(log_, L"TVKPublisherSubscriber: delivery", [this] { DeliverFirst(); })) {
        // It stays in the queue when it was not taken out: a change of consent must not be lost for want of memory.
        runtime_.Wait(*work_, kRetry);
      }
    }
  }

  void DeliverFirst() {
    std::unique_lock lock(mutex_);
    // What needs memory comes before it is taken out: each receiver has a copy of its own.
    const SubscriptionPtr only = queue_.front().only;
    const std::vector<SubscriptionPtr> receivers = only != nullptr ? std::vector{only} : subscriptions_;
    std::vector<TVKNotificationData> copies(receivers.size(), queue_.front().data);
    queue_.pop_front();
    lock.unlock();
    for (std::size_t i = 0; i < receivers.size(); ++i)
      Call(receivers[i], copies[i]);
  }

  void Call(const SubscriptionPtr& receiver, TVKNotificationData& data) {
    {
      const std::lock_guard lock(mutex_);
      // Whoever unsubscribed since the receivers were listed must not be called any more.
      if (ending_ || std::ranges::find(subscriptions_, receiver) == subscriptions_.end()) return;
      called_ = receiver;
      delivered_->Reset();
    }
    TVK::CallLogged(log_, {L"TVKPublisherSubscriber: subscriber", receiver->id}, [&] { receiver->callback(data); });
    const std::lock_guard lock(mutex_);
    called_ = nullptr;
    delivered_->Set();
  }

  platform::Runtime& runtime_;
  TVK::Log log_;
  const std::unique_ptr<platform::Event> work_;
  const std::unique_ptr<platform::Event> delivered_;  // set while no callback runs
  std::mutex mutex_;                                  // guards what follows
  std::vector<SubscriptionPtr> subscriptions_;
  std::deque<Delivery> queue_;
  std::optional<TVKNotificationData> last_;
  SubscriptionPtr called_;
  std::thread::id delivering_thread_;
  bool ending_ = false;
  std::thread thread_;
};

TVKPublisherSubscriber::TVKPublisherSubscriber(platform::Runtime& runtime) : impl_(std::make_unique<Impl>(runtime)) {}
TVKPublisherSubscriber::~TVKPublisherSubscriber() = default;

std::wstring TVKPublisherSubscriber::Subscribe(Callback callback, bool replay_last) {
  return impl_->Subscribe(std::move(callback), replay_last);
}
void TVKPublisherSubscriber::Unsubscribe(const std::wstring& id) {
  impl_->Unsubscribe(id);
}
void TVKPublisherSubscriber::Publish(TVKNotificationData data) {
  impl_->Publish(std::move(data));
}

#include "platform/linux/power_wishes.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/linux/wake.h"

namespace platform {

class PowerWishes::Wish final : public CHPowerNotifyHandle {
 public:
  explicit Wish(std::shared_ptr<PowerWishes> wishes) : wishes_(std::move(wishes)) { ++wishes_->count_; }
  ~Wish() override { --wishes_->count_; }
  Wish(const Wish&) = delete;
  Wish& operator=(const Wish&) = delete;

 private:
  const std::shared_ptr<PowerWishes> wishes_;
};

PowerWishes::PowerWishes() : added_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!added_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

std::shared_ptr<CHPowerNotifyHandle> PowerWishes::Add() {
  auto wish = std::make_shared<Wish>(shared_from_this());
  SignalEventFd(added_.get());
  return wish;
}

bool PowerWishes::Take() {
  eventfd_t count = 0;
  ::eventfd_read(added_.get(), &count);  // fails when there is nothing to take
  return any();
}

}  // namespace platform

#include "platform/hanging_asks.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace platform {

/// One thread, and how far it is.
struct HangingAsks::Worker {
  std::mutex mutex;  ///< Guards what follows.
  std::condition_variable changed;
  std::vector<std::size_t> pending;  ///< Indices, the next one last.
  std::size_t done = 0;              ///< How many it is through with.
  bool ended = false;                ///< Set last.
  std::exception_ptr failure;
};

namespace {

template <typename Worker>
void Work(const std::shared_ptr<Worker>& worker, const std::function<void(std::size_t)>& work) {
  std::unique_lock lock(worker->mutex);
  while (!worker->pending.empty() && worker->failure == nullptr) {
    const std::size_t index = worker->pending.back();
    worker->pending.pop_back();
    lock.unlock();
    std::exception_ptr failure;
    try {
      work(index);
    } catch (...) {
      failure = std::current_exception();
    }
    lock.lock();
    worker->failure = failure;
    ++worker->done;
    worker->changed.notify_all();
  }
  worker->ended = true;
  worker->changed.notify_all();
}

}  // namespace

std::vector<bool> HangingAsks::Run(const std::vector<std::string>& names, std::function<void(std::size_t)> work) {
  std::erase_if(left_behind_, [](const auto& one) {
    const std::lock_guard lock(one.second->mutex);
    return one.second->ended;
  });
  std::vector<bool> hangs(names.size());
  std::vector<std::size_t> pending;
  for (std::size_t i = names.size(); i-- > 0;) {
    hangs[i] =
        std::ranges::find(left_behind_, names[i], [](const auto& one) { return one.first; }) != left_behind_.end();
    if (!hangs[i]) pending.push_back(i);
  }
  const std::size_t most = left_behind_.size() + kMostInARound;
  while (!pending.empty() && left_behind_.size() < most) {
    const auto worker = std::make_shared<Worker>();
    worker->pending = pending;
    std::thread([worker, work] { Work(worker, work); }).detach();
    std::unique_lock lock(worker->mutex);
    for (std::size_t seen = 0; !worker->ended; seen = worker->done) {
      const bool moved = worker->changed.wait_for(lock, limit_, [&] { return worker->ended || worker->done != seen; });
      if (moved) continue;
      // It is at the last one that it took; the others are another thread's now.
      const std::size_t at = pending[pending.size() - 1 - worker->done];
      worker->pending.clear();
      hangs[at] = true;
      left_behind_.emplace_back(names[at], worker);
      break;
    }
    if (worker->failure != nullptr) std::rethrow_exception(worker->failure);
    pending.resize(pending.size() - std::min(pending.size(), worker->done + 1));
  }
  for (const std::size_t index : pending)
    hangs[index] = true;
  return hangs;
}

}  // namespace platform

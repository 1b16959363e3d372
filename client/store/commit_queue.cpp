#include "client/store/commit_queue.h"

#include <algorithm>
#include <thread>

namespace TVK {
namespace {

// How often a leader lets others run before it goes without them; some microseconds when nobody comes.
constexpr int kPatience = 32;

}  // namespace

std::set<std::string> ContextsNamedBy(std::span<QueuedRecord* const> records) {
  std::set<std::string> ids;
  for (const QueuedRecord* record : records) {
    ids.insert({record->row.dataset_context_id, record->row.device_context_id});
    for (const RecordRow& row : record->more)
      ids.insert({row.dataset_context_id, row.device_context_id});
  }
  return ids;
}

void CommitQueue::Do(const std::function<void()>& work) {
  QueuedRecord place(RecordRow{}, {});
  place.work_ = &work;
  Write(place);
}

int CommitQueue::Write(QueuedRecord& record) {
  std::unique_lock lock(mutex_);
  waiting_.push_back(&record);
  if (busy_) {
    finished_.wait(lock, [&] { return record.done_ || record.leads_; });
    if (record.done_) return record.result;
  }
  busy_ = true;
  // The writers of the last commit are just being woken, and busy ones come back with their next records. A leader that
  // went at once would commit alone, and the others would wait for a flush that could have carried them.
  for (int patience = kPatience; patience > 0 && waiting_.size() < last_batch_; --patience) {
    lock.unlock();
    std::this_thread::yield();
    lock.lock();
  }
  std::vector<QueuedRecord*> batch;
  batch.swap(waiting_);
  last_batch_ = batch.size();
  lock.unlock();

  const auto first_work = std::stable_partition(batch.begin(), batch.end(),
                                                [](const QueuedRecord* each) { return each->work_ == nullptr; });
  if (batch.begin() != first_work) commit_({batch.begin(), first_work});
  std::for_each(first_work, batch.end(), [](const QueuedRecord* each) { (*each->work_)(); });

  lock.lock();
  // Under the lock, since a record may be gone as soon as its writer sees that it is done.
  for (QueuedRecord* written : batch)
    written->done_ = true;
  busy_ = !waiting_.empty();
  if (busy_) waiting_.front()->leads_ = true;
  lock.unlock();
  finished_.notify_all();
  return record.result;
}

}  // namespace TVK

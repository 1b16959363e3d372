#include "core/monitor_list.h"

#include <algorithm>

namespace TVK {

void MonitorList::Open() {
  const std::lock_guard lock(mutex_);
  open_ = true;
}

std::vector<MonitorList::Entry> MonitorList::Close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
  claimed_.clear();
  std::ranges::copy_if(entries_, std::back_inserter(claimed_), [](const Entry& entry) { return entry->ClaimStop(); });
  return std::move(claimed_);
}

bool MonitorList::Add(const Entry& entry) {
  const std::lock_guard lock(mutex_);
  if (!open_) return false;
  claimed_.reserve(entries_.size() + 1);
  entries_.push_back(entry);
  missing_.erase(entry->row().id);
  return true;
}

void MonitorList::Remove(const Entry& entry) {
  const std::lock_guard lock(mutex_);
  std::erase(entries_, entry);
}

void MonitorList::NoteMissing(std::wstring_view dataset_id) {
  const std::lock_guard lock(mutex_);
  missing_.insert(dataset_id);
}

bool MonitorList::IsMissing(std::wstring_view dataset_id) const {
  const std::lock_guard lock(mutex_);
  return missing_.contains(dataset_id);
}

std::vector<MonitorList::Entry> MonitorList::Listed() const {
  const std::lock_guard lock(mutex_);
  std::vector<Entry> listed;
  std::ranges::copy_if(entries_, std::back_inserter(listed), [](const Entry& entry) { return entry->IsListed(); });
  return listed;
}

MonitorList::Entry MonitorList::Find(std::wstring_view dataset_id) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::ranges::find(entries_, dataset_id, [](const Entry& entry) { return entry->row().id; });
  return found == entries_.end() ? nullptr : *found;
}

void MonitorList::CallEach(const wchar_t* caller, const std::function<void(EventMonitorBase&)>& call) const {
  for (const Entry& entry : Listed())
    entry->Call(caller, call);
}

}  // namespace TVK

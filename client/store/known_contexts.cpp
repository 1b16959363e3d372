#include "client/store/known_contexts.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "client/store/erasure.h"

namespace TVK {
namespace {

// How many contexts of a series that were written in this run stay: the one in force, and the one before it.
constexpr std::size_t kKeptOfSeries = 2;

// The age of what was given counts from here, so that with any sequence added it is below 0.
constexpr std::int64_t kFirstAgeGiven = std::numeric_limits<std::int64_t>::min() / 2;

}  // namespace

std::size_t KnownContexts::IndexOf(RecordKind kind, const std::string& context_id) const {
  const auto found = std::ranges::find_if(
      entries_, [&](const Entry& entry) { return entry.row.kind == kind && entry.row.context_id == context_id; });
  return static_cast<std::size_t>(std::distance(entries_.begin(), found));
}

void KnownContexts::NoteWritten(const RecordRow& row, std::int64_t sequence) {
  if (row.context_id.empty()) return;
  const std::lock_guard lock(mutex_);
  if (const std::size_t index = IndexOf(row.kind, row.context_id); index != entries_.size()) {
    Entry& known = entries_[index];
    // One that waited and is written ahead of a record is no newer for that.
    const bool waited = known.sequence == 0 && sequence != 0;
    known = {row, waited ? known.age : next_age_++, sequence};
  } else {
    entries_.push_back({row, next_age_++, sequence});
  }
  DropSuperseded(row);
}

void KnownContexts::NoteGiven(RecordRow row, std::int64_t sequence) {
  if (row.context_id.empty()) return;
  const std::lock_guard lock(mutex_);
  if (IndexOf(row.kind, row.context_id) != entries_.size()) return;
  entries_.push_back({std::move(row), kFirstAgeGiven + sequence, sequence});
}

void KnownContexts::DropSuperseded(const RecordRow& newest) {
  std::vector<std::int64_t> ages;  // of this run
  for (const Entry& entry : entries_) {
    if (entry.age >= 0 && OfOneSeries(entry.row, newest)) ages.push_back(entry.age);
  }
  if (ages.size() < kKeptOfSeries) return;
  std::ranges::sort(ages, std::greater<>());
  const std::int64_t oldest_kept = ages[kKeptOfSeries - 1];
  const auto is_named = [&](const RecordRow& context) {
    return context.kind == RecordKind::kDevice && std::ranges::any_of(entries_, [&](const Entry& entry) {
             return entry.row.device_context_id == context.context_id;
           });
  };
  std::vector<Entry> kept;
  kept.reserve(entries_.size());
  for (const Entry& entry : entries_) {
    if (entry.age >= oldest_kept || !OfOneSeries(entry.row, newest) || is_named(entry.row)) kept.push_back(entry);
  }
  entries_ = std::move(kept);
}

void KnownContexts::Forget(RecordKind kind, const std::string& context_id) {
  const std::lock_guard lock(mutex_);
  std::erase_if(entries_,
                [&](const Entry& entry) { return entry.row.kind == kind && entry.row.context_id == context_id; });
}

std::optional<RecordRow> KnownContexts::Get(RecordKind kind, const std::string& context_id) const {
  const std::lock_guard lock(mutex_);
  const std::size_t index = IndexOf(kind, context_id);
  return index == entries_.size() ? std::nullopt : std::optional(entries_[index].row);
}

std::optional<RecordRow> KnownContexts::Newest(RecordKind kind, const std::string& dataset_id,
                                               const std::optional<std::string>& key, bool only_unwritten) const {
  const std::lock_guard lock(mutex_);
  const Entry* newest = nullptr;
  for (const Entry& entry : entries_) {
    if (entry.row.kind != kind || entry.row.dataset_id != dataset_id || (key && entry.row.key != *key)) continue;
    if (only_unwritten && entry.sequence != 0) continue;
    if (newest == nullptr || entry.age > newest->age) newest = &entry;
  }
  return newest == nullptr ? std::nullopt : std::optional(newest->row);
}

std::vector<RecordRow> KnownContexts::Unwritten(std::set<std::string> named) const {
  std::vector<Entry> unwritten;
  {
    const std::lock_guard lock(mutex_);
    // Dataset contexts ahead: they may name device contexts.
    for (const RecordKind kind : {RecordKind::kDataset, RecordKind::kDevice}) {
      for (const Entry& entry : entries_) {
        if (entry.row.kind != kind || entry.sequence != 0) continue;
        if (entry.erased && !named.contains(entry.row.context_id)) continue;
        named.insert(entry.row.device_context_id);
        unwritten.push_back(entry);
      }
    }
  }
  std::ranges::sort(unwritten, [](const Entry& one, const Entry& other) {
    return one.row.kind != other.row.kind ? one.row.kind > other.row.kind : one.age < other.age;
  });
  std::vector<RecordRow> rows;
  rows.reserve(unwritten.size());
  for (Entry& entry : unwritten)
    rows.push_back(std::move(entry.row));
  return rows;
}

std::vector<std::int64_t> KnownContexts::Sequences() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::int64_t> sequences;
  sequences.reserve(entries_.size());
  for (const Entry& entry : entries_) {
    if (entry.sequence != 0) sequences.push_back(entry.sequence);
  }
  return sequences;
}

void KnownContexts::NoteErased(const Find& find, const Erasure& erasure) {
  const auto is_meant = [&](const RecordRow& row) {
    return !erasure.before_seconds && (!erasure.dataset_id || row.dataset_id == *erasure.dataset_id);
  };
  const std::lock_guard lock(mutex_);
  for (Entry& entry : entries_) {
    const bool waited = entry.sequence == 0;
    entry.sequence = find(entry.row.kind, entry.row.context_id);
    entry.erased = entry.sequence == 0 && (entry.erased || !waited || is_meant(entry.row));
  }
}

void KnownContexts::Locate(const Find& find) {
  const std::lock_guard lock(mutex_);
  for (Entry& entry : entries_)
    entry.sequence = find(entry.row.kind, entry.row.context_id);
}

}  // namespace TVK

#include "platform/simulated/simulated_event_log.h"

#include <algorithm>
#include <charconv>

#include "platform/event_log_filter.h"
#include "platform/event_query.h"
#include "platform/runtime.h"

namespace platform {
namespace {

/// By channel: the number of the last event that was looked at or is gone; 0: none.
using Places = std::map<std::string, std::uint64_t>;

/// "Application=12;System=3"
std::string BookmarkOf(const Places& places) {
  std::string bookmark;
  for (const auto& [channel, id] : places) {
    if (!bookmark.empty()) bookmark += ';';
    bookmark.append(channel).append("=").append(std::to_string(id));
  }
  return bookmark;
}

std::optional<Places> PlacesOf(std::string_view bookmark) {
  Places places;
  while (!bookmark.empty()) {
    const std::string_view place = bookmark.substr(0, bookmark.find(';'));
    bookmark.remove_prefix(std::min(place.size() + 1, bookmark.size()));
    const std::size_t name = place.find('=');
    if (name == place.npos) return std::nullopt;
    const std::string_view digits = place.substr(name + 1);
    std::uint64_t& id = places[std::string(place.substr(0, name))];
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), id);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  }
  return places;
}

}  // namespace

class SimulatedEventLog::Reader final : public EventLogReader {
 public:
  Reader(SimulatedEventLog& log, Runtime& runtime, EventLogReaderSettings settings, EventLogFilter filter)
      : log_(log),
        clock_(runtime.clock()),
        settings_(std::move(settings)),
        filter_(std::move(filter)),
        news_(runtime.MakeEvent(EventReset::kManual, true)) {
    const auto places = PlacesOf(settings_.bookmark);
    if (places) {
      places_ = looked_at_ = known_ = *places;
    } else {
      notices_.push_back({.trouble = EventLogTrouble::kGap});
    }
    const std::lock_guard lock(log_.channels_mutex_);
    for (const ChannelQuery& query : QueriesByChannel(*ReadEventQueries(settings_.query))) {
      const auto channel = log_.channels_.find(query.channel);
      const auto trouble =
          channel == log_.channels_.end() ? EventLogTrouble::kChannelNotFound : channel->second.trouble;
      if (trouble) {
        notices_.push_back({.trouble = *trouble, .channel = query.channel, .error = kErrorNotSupported});
      } else {
        followed_.push_back(query.channel);
      }
    }
    log_.readers_.insert(this);
  }

  ~Reader() override {
    const std::lock_guard lock(log_.channels_mutex_);
    log_.readers_.erase(this);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  Waitable& news() override { return *news_; }
  void PassUnwanted() override { passes_ = true; }
  /// `event` was logged; with channels_mutex_ held.
  void Tell(const LoggedEvent& event) {
    const bool followed = std::ranges::find(followed_, event.channel) != followed_.end();
    if (!log_.moves_with_wanted_ || (followed && filter_.Takes(event, clock_.Now()))) news_->Set();
  }

  EventLogBatch Take(std::size_t limit) override {
    if (log_.throws_next_.exchange(false)) throw std::bad_alloc();
    news_->Reset();
    EventLogBatch batch{.notices = std::exchange(notices_, {})};
    const std::lock_guard lock(log_.channels_mutex_);
    const bool passes = std::exchange(passes_, false) || !log_.moves_with_wanted_;
    for (const std::string& name : followed_) {
      TakeFrom(name, limit, batch);
      if (passes) places_[name] = looked_at_[name];
    }
    batch.bookmark = BookmarkOf(places_);
    if (batch.more) news_->Set();
    return batch;
  }

 private:
  void TakeFrom(const std::string& name, std::size_t limit, EventLogBatch& batch) {
    const Channel& channel = log_.channels_.at(name);
    std::uint64_t& place = looked_at_[name];
    if (channel.last_id < place) {
      batch.notices.push_back({.trouble = EventLogTrouble::kCleared, .channel = name});
      place = places_[name] = 0;
    }
    const std::uint64_t gone = channel.last_id - channel.events.size();
    if (place != 0 && place < gone) {
      batch.notices.push_back({.trouble = EventLogTrouble::kGap, .channel = name, .lost = gone - place});
    }
    place = std::max(place, gone);
    while (place < channel.last_id) {
      if (batch.events.size() == limit) {
        batch.more = true;
        return;
      }
      const LoggedEvent& event = channel.events[place++ - gone];
      if (!filter_.Takes(event, clock_.Now())) continue;
      places_[name] = place;
      batch.events.push_back({RecordOf(event, settings_), BookmarkOf(places_), !known_.contains(name)});
    }
  }

  SimulatedEventLog& log_;
  const Clock& clock_;
  const EventLogReaderSettings settings_;
  const EventLogFilter filter_;
  const std::unique_ptr<Event> news_;
  std::vector<EventLogNotice> notices_;  ///< To be told with the next batch.
  std::vector<std::string> followed_;
  Places places_;     ///< Of the bookmark.
  Places looked_at_;  ///< At or beyond them.
  Places known_;      ///< Of the bookmark that was given.
  bool passes_ = false;
};

SimulatedEventLog::SimulatedEventLog()
    : channels_{{"Application", {}}, {"Security", {}}, {"Setup", {}}, {"System", {}}} {}

SimulatedEventLog::~SimulatedEventLog() = default;

EventLogReading SimulatedEventLog::Query(const EventLogQuery& query) {
  const auto answer = Get();
  if (answer) return answer(query);
  return {.records = {}, .failure = EventLogFailure::kNotSupported, .error = kErrorNotSupported};
}

EventLogReaderOpening SimulatedEventLog::OpenReader(Runtime& runtime, const EventLogReaderSettings& settings) {
  const EventLogFailure refusal = refusal_;
  if (refusal != EventLogFailure::kNone) return {.failure = refusal};
  auto filter = EventLogFilter::Parse(settings.query);
  if (!filter) return {.failure = EventLogFailure::kInvalidQuery};
  return {.reader = std::make_unique<Reader>(*this, runtime, settings, std::move(*filter))};
}

EventLogStatus SimulatedEventLog::ReadStatus(const std::string& channel) {
  constexpr std::uint64_t kBytesOfAnEvent = 512;
  constexpr std::uint64_t kMostBytes = 20u << 20;  // as Windows sets it up
  const std::lock_guard lock(channels_mutex_);
  const auto found = channels_.find(channel);
  EventLogStatus status;
  if (found == channels_.end() || found->second.trouble == EventLogTrouble::kChannelNotFound) {
    status.failure = EventLogFailure::kChannelNotFound;
  } else if (found->second.trouble) {
    status.failure = EventLogFailure::kQuery;
  } else {
    status.events = found->second.events.size();
    status.bytes = *status.events * kBytesOfAnEvent;
    status.most_bytes = kMostBytes;
    if (!found->second.events.empty()) status.oldest = found->second.events.front().time;
  }
  if (status.failure != EventLogFailure::kNone) status.error = kErrorNotSupported;
  return status;
}

void SimulatedEventLog::Append(LoggedEvent event) {
  const std::lock_guard lock(channels_mutex_);
  Channel& channel = channels_.at(event.channel);
  event.record_id = ++channel.last_id;
  channel.events.push_back(std::move(event));
  for (Reader* const reader : readers_)
    reader->Tell(channel.events.back());
}

void SimulatedEventLog::Clear(const std::string& channel) {
  const std::lock_guard lock(channels_mutex_);
  channels_.at(channel).events.clear();
  channels_.at(channel).last_id = 0;
}

void SimulatedEventLog::DropOldest(const std::string& channel, std::size_t count) {
  const std::lock_guard lock(channels_mutex_);
  auto& events = channels_.at(channel).events;
  events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(std::min(count, events.size())));
}

void SimulatedEventLog::Fail(const std::string& channel, std::optional<EventLogTrouble> trouble) {
  const std::lock_guard lock(channels_mutex_);
  channels_.at(channel).trouble = trouble;
}

}  // namespace platform

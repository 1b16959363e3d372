#include "platform/windows/event_log_reader_windows.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <system_error>

#include "platform/event_query.h"
#include "platform/windows/event_log_status.h"
#include "platform/windows/event_renderer.h"
#include "platform/windows/kernel_object.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

constexpr DWORD kLargestBatch = 64;
constexpr int kTries = 4;  // to read on from the bookmark: at batches of 64, 16, 4 and 1

/// The bookmarks of the channels, by name.
using Places = std::map<std::string, std::string>;

/// Nothing when the text is none that TextOf made.
std::optional<Places> PlacesOf(std::string_view text) {
  Places places;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::size_t name = line.find('\t');
    if (name == line.npos) return std::nullopt;
    places[std::string(line.substr(0, name))] = line.substr(name + 1);
  }
  return places;
}

std::string TextOf(const Places& places) {
  std::string text;
  for (const auto& [channel, bookmark] : places) {
    if (bookmark.empty()) continue;
    if (!text.empty()) text += '\n';
    text.append(channel).append("\t").append(bookmark);
  }
  return text;
}

/// The number of the event that a bookmark's XML names.
std::optional<std::uint64_t> RecordIdOf(std::string_view bookmark) {
  constexpr std::string_view kName = "RecordId=";
  const std::size_t at = bookmark.find(kName);
  if (at == bookmark.npos || bookmark.size() <= at + kName.size()) return std::nullopt;
  const std::string_view digits = bookmark.substr(at + kName.size() + 1);  // behind the quote
  std::uint64_t id = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), id);
  return error == std::errc() ? std::optional(id) : std::nullopt;
}

/// The newest event of the channel, wanted or not; nothing on failure and where it has none.
UniqueEventLogHandle NewestEvent(const std::string& channel) {
  const UniqueEventLogHandle results(
      EvtQuery(nullptr, WideFromUtf8(channel).c_str(), L"*", EvtQueryChannelPath | EvtQueryReverseDirection));
  UniqueEventLogHandle event;
  DWORD returned = 0;
  if (!results || !EvtNext(results.get(), 1, event.Receive(), kLongestLogWaitMs, 0, &returned)) return {};
  return event;
}

/// Where nothing but a stub stands for the log's functions.
bool IsUnsupported(DWORD error) {
  return error == ERROR_SUCCESS || error == ERROR_CALL_NOT_IMPLEMENTED;
}

EventLogTrouble TroubleOf(DWORD error) {
  switch (error) {
    case ERROR_EVT_CHANNEL_NOT_FOUND:
      return EventLogTrouble::kChannelNotFound;
    case ERROR_ACCESS_DENIED:
      return EventLogTrouble::kAccessRefused;
    default:
      return EventLogTrouble::kFailed;
  }
}

UniqueKernelHandle MakeSignal() {
  UniqueKernelHandle signal(CreateEventW(nullptr, TRUE, TRUE, nullptr));
  if (!signal) throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateEvent");
  return signal;
}

class WindowsEventLogReader final : public EventLogReader {
 public:
  explicit WindowsEventLogReader(const EventLogReaderSettings& settings) : settings_(settings), news_(MakeSignal()) {}

  /// 0, or why nothing can be read.
  DWORD Open(const std::vector<ChannelQuery>& queries) {
    if (const auto places = PlacesOf(settings_.bookmark)) {
      places_ = *places;
    } else {
      notices_.push_back({.trouble = EventLogTrouble::kGap});
    }
    for (const ChannelQuery& query : queries) {
      Part& part = parts_.emplace_back(Part{
          .channel = query.channel, .query = WideFromUtf8(query.text), .is_new = !places_.contains(query.channel)});
      const DWORD error = Subscribe(part);
      if (IsUnsupported(error) && !part.subscription) return ERROR_CALL_NOT_IMPLEMENTED;
      if (error != 0) GiveUp(part, error);
    }
    // Behind the first subscription: a system without event logs may have no such call (Wine 8 ends the process).
    return renderer_.Open(settings_.value_paths);
  }

  Waitable& news() override { return news_; }

  EventLogBatch Take(std::size_t limit) override {
    news_.Reset();
    EventLogBatch batch{.notices = std::exchange(notices_, {})};
    // Another one first each time, so that a channel in a flood does not keep the others waiting.
    std::ranges::rotate(parts_, parts_.begin() + 1);
    const bool passes = std::exchange(passes_, false);
    std::ranges::all_of(parts_, [&](Part& part) { return TakeAndPass(part, limit, passes, batch); });
    batch.bookmark = TextOf(places_);
    batch.more = batch.more || !notices_.empty();
    if (batch.more) news_.Set();
    return batch;
  }

  void PassUnwanted() override { passes_ = true; }

 private:
  struct Part {
    std::string channel;
    std::wstring query;
    bool is_new = false;  ///< The reader's bookmark does not know the channel.
    UniqueEventLogHandle bookmark = {};
    UniqueEventLogHandle subscription = {};  ///< None: nothing comes of it any more.
    DWORD batch = kLargestBatch;
    int tries = 0;  ///< Since the last events.
  };

  void Tell(const Part& part, EventLogTrouble trouble, std::optional<std::uint64_t> lost = {}) {
    notices_.push_back({.trouble = trouble, .channel = part.channel, .lost = lost});
  }

  /// Nothing more comes of it.
  void GiveUp(Part& part, DWORD error) {
    part.subscription.Reset();
    notices_.push_back({.trouble = TroubleOf(error), .channel = part.channel, .error = error});
  }

  DWORD SubscribeFrom(Part& part, DWORD flags) {
    SetLastError(ERROR_SUCCESS);
    const bool from_bookmark = (flags & EvtSubscribeOriginMask) == EvtSubscribeStartAfterBookmark;
    part.subscription.Reset(EvtSubscribe(nullptr, news_.handle(), nullptr, part.query.c_str(),
                                         from_bookmark ? part.bookmark.get() : nullptr, nullptr, nullptr, flags));
    return part.subscription ? 0 : GetLastError();
  }

  DWORD SubscribeFromOldest(Part& part) {
    places_[part.channel].clear();
    const DWORD error = SubscribeFrom(part, EvtSubscribeStartAtOldestRecord);
    if (part.subscription) part.bookmark.Reset(EvtCreateBookmark(nullptr));
    return error;
  }

  /// Goes behind the channel's place. 0, or the error.
  DWORD Subscribe(Part& part) {
    const std::string& place = places_[part.channel];
    if (place.empty()) return SubscribeFromOldest(part);
    part.bookmark.Reset(EvtCreateBookmark(WideFromUtf8(place).c_str()));
    if (!part.bookmark) {
      Tell(part, EventLogTrouble::kGap);
      return SubscribeFromOldest(part);
    }
    const DWORD error = SubscribeFrom(part, EvtSubscribeStartAfterBookmark | EvtSubscribeStrict);
    return error == ERROR_NOT_FOUND || error == ERROR_EVT_QUERY_RESULT_STALE ? SubscribeWithoutEvent(part) : error;
  }

  /// The bookmark's event is gone.
  DWORD SubscribeWithoutEvent(Part& part) {
    const auto id = RecordIdOf(places_[part.channel]);
    const auto extent = ReadLogExtent(part.channel);
    if (id && extent && (extent->count == 0 || extent->oldest + extent->count - 1 < *id)) {
      Tell(part, EventLogTrouble::kCleared);
      return SubscribeFromOldest(part);
    }
    if (id && extent && extent->oldest > *id) {
      const std::uint64_t lost = extent->oldest - *id - 1;
      if (lost > 0) Tell(part, EventLogTrouble::kGap, lost);
      return SubscribeFromOldest(part);
    }
    Tell(part, EventLogTrouble::kGap);
    // Without the strict mode it begins with the event that is nearest.
    return SubscribeFrom(part, EvtSubscribeStartAfterBookmark) == 0 ? 0 : SubscribeFromOldest(part);
  }

  /// As TakeFrom; when `passes`, the place of a channel that is emptied then goes behind its newest event.
  bool TakeAndPass(Part& part, std::size_t limit, bool passes, EventLogBatch& batch) {
    // Asked for first: what the query wants of all up to this one then is among what is taken. What comes meanwhile
    // stands behind it, so nothing between is skipped.
    const std::string newest = passes && part.subscription ? NewestPlace(part.channel) : std::string();
    if (!TakeFrom(part, limit, batch)) return false;
    std::string& place = places_[part.channel];
    // One that was emptied numbers anew: it is left to the next reader to tell that.
    if (part.subscription && RecordIdOf(newest) > RecordIdOf(place)) place = newest;
    return true;
  }

  /// The place behind the newest event; empty on failure and where there is none.
  std::string NewestPlace(const std::string& channel) {
    const UniqueEventLogHandle event = NewestEvent(channel);
    const UniqueEventLogHandle bookmark(event ? EvtCreateBookmark(nullptr) : nullptr);
    std::string place;
    if (!bookmark || !EvtUpdateBookmark(bookmark.get(), event.get())) return {};
    return renderer_.Bookmark(bookmark.get(), place) == 0 ? place : std::string();
  }

  /// Whether this batch may go on with another channel.
  bool TakeFrom(Part& part, std::size_t limit, EventLogBatch& batch) {
    while (part.subscription) {
      if (batch.events.size() >= limit) {
        batch.more = true;
        return false;
      }
      std::array<UniqueEventLogHandle, kLargestBatch> events;
      const DWORD error = Next(part, limit - batch.events.size(), events);
      if (error == ERROR_NO_MORE_ITEMS) return true;
      if (error != 0) {
        // Subscribing anew sets the signal, which is to be reset before events are taken: in the next Take.
        ReadOn(part, error);
        batch.more = true;
        return false;
      }
      for (const UniqueEventLogHandle& event : events) {
        if (event && !Add(part, event.get(), batch)) return true;
      }
    }
    return true;
  }

  /// The next events. 0, or the error.
  DWORD Next(Part& part, std::size_t most, std::array<UniqueEventLogHandle, kLargestBatch>& events) {
    std::array<EVT_HANDLE, kLargestBatch> handles{};
    DWORD returned = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(part.batch, most));
    if (!EvtNext(part.subscription.get(), size, handles.data(), kLongestLogWaitMs, 0, &returned)) return GetLastError();
    for (DWORD i = 0; i < returned; ++i)
      events[i].Reset(handles[i]);
    part.tries = 0;
    return returned > 0 ? 0 : ERROR_NO_MORE_ITEMS;
  }

  /// After an error of Next.
  void ReadOn(Part& part, DWORD error) {
    const bool again = error == RPC_S_INVALID_BOUND || error == ERROR_INVALID_OPERATION || error == ERROR_TIMEOUT;
    if (error == ERROR_EVT_QUERY_RESULT_STALE) {
      const std::size_t told = notices_.size();
      error = Subscribe(part);
      if (error == 0 && notices_.size() == told) Tell(part, EventLogTrouble::kGap);
    } else if (again && ++part.tries < kTries) {
      part.batch = std::max<DWORD>(part.batch / 4, 1);
      error = Subscribe(part);
    }
    if (error != 0) GiveUp(part, error);
  }

  bool Add(Part& part, EVT_HANDLE event, EventLogBatch& batch) {
    EventLogEvent taken;
    if (renderer_.Values(event, taken.record.values) != 0) taken.record.values.resize(settings_.value_paths.size());
    if (settings_.xml) renderer_.Xml(event, taken.record.xml);
    std::string& place = places_[part.channel];
    DWORD error = EvtUpdateBookmark(part.bookmark.get(), event) ? 0 : GetLastError();
    if (error == 0) error = renderer_.Bookmark(part.bookmark.get(), place);
    if (error != 0) {
      GiveUp(part, error);  // another reader begins with this event
      return false;
    }
    taken.bookmark = TextOf(places_);
    taken.of_new_channel = part.is_new;
    batch.events.push_back(std::move(taken));
    return true;
  }

  const EventLogReaderSettings settings_;
  KernelEvent news_;  ///< Of all subscriptions.
  EventRenderer renderer_;
  std::vector<Part> parts_;              ///< One a channel; never none.
  Places places_;                        ///< Of the events that were taken or passed last.
  std::vector<EventLogNotice> notices_;  ///< To be told with the next batch.
  bool passes_ = false;                  ///< PassUnwanted was told since the last Take.
};

}  // namespace

EventLogReaderOpening OpenEventLogReader(const EventLogReaderSettings& settings) {
  const auto queries = ReadEventQueries(settings.query);
  if (!queries) return {.failure = EventLogFailure::kInvalidQuery, .error = ERROR_EVT_INVALID_QUERY};
  auto reader = std::make_unique<WindowsEventLogReader>(settings);
  const DWORD error = reader->Open(QueriesByChannel(*queries));
  if (error == 0) return {.reader = std::move(reader)};
  return {.failure = error == ERROR_CALL_NOT_IMPLEMENTED ? EventLogFailure::kNotSupported : EventLogFailure::kQuery,
          .error = error};
}

}  // namespace platform::windows

// The service's end of the local channel: who is let in, for how long, and whole messages of theirs.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "client/channel/caller_places.h"
#include "client/channel/message_stream.h"
#include "client/channel/refusals.h"
#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

struct ChannelLimits {
  CallerPlaces::Limits places = {};  ///< What comes beyond is refused.
  /// Waking time in which a whole message must come, from the connection or the last answer on, and in which an answer
  /// must be taken. Who is quiet for longer is closed, too: a client connects again when it has something to say.
  std::chrono::milliseconds patience{5000};
  /// The same for the first message of a caller whom the system does not name before it came.
  std::chrono::milliseconds stranger_patience{1000};
  /// How long a conversation lasts at most: who calls, and what that one may, is asked anew at the next.
  std::chrono::milliseconds conversation{60'000};
};

/// One thread waits for callers; each conversation has a thread of its own, so that callers who write share the
/// store's commits. Nobody connected: no wake-up.
class ChannelServer {
 public:
  /// The answer to a request, both JSON, on the caller's thread: any, side by side.
  struct Answer {
    std::string text;
    bool last = false;  ///< The conversation ends with it.
  };
  /// Whether the caller is still there; for the caller's thread, while its answer is made.
  using IsAwaited = std::function<bool()>;
  using Answerer =
      std::function<Answer(const platform::LocalCaller& caller, std::string_view request, const IsAwaited& is_awaited)>;

  /// What listens; see platform::ListenLocally.
  using Listening = std::function<platform::LocalListening(
      platform::Runtime& runtime, const std::filesystem::path& place, platform::Waitable& stop)>;

  /// Everything must outlive the object. `refusals` also counts what is refused here.
  ChannelServer(platform::Runtime& runtime, const Log& log, Refusals& refusals, Answerer answerer,
                ChannelLimits limits = {}, Listening listening = platform::ListenLocally);
  /// Ends every conversation, and waits for the answers that are being made.
  ~ChannelServer();
  ChannelServer(const ChannelServer&) = delete;
  ChannelServer& operator=(const ChannelServer&) = delete;

  /// How long after a failure it is tried again to listen: the first time, and at the most.
  static constexpr std::chrono::milliseconds kFirstPause{1000};
  static constexpr std::chrono::milliseconds kLongestPause{60'000};

  /// Whether a program of ours was started in the session of this number for its user. Any thread.
  using OwnSession = std::function<bool(std::uint32_t session)>;

  /// Begins to listen at `place`. Empty, or why nobody can connect yet: what stands in the way may go, so it is tried
  /// again until the end. `own_session`: a caller of such a session counts as logged on in a session that is in use,
  /// though another one may be at the console by now: our program there has things to say until its end. Empty: none
  /// is. Once.
  std::string Start(const std::filesystem::path& place, OwnSession own_session = {});

 private:
  using Conversation = std::uint64_t;
  using Place = std::shared_ptr<void>;

  void Listen();
  /// Makes the listener. Empty, or why there is none.
  std::string Open();
  void Admit(std::unique_ptr<platform::LocalConnection> connection);
  /// Who calls; nothing where the system does not say it (yet).
  std::optional<platform::LocalCaller> Identify(MessageStream& stream) const;
  /// A conversation with who holds `place`, until its end. `caller`: nothing where the system has yet to name it.
  void Converse(MessageStream& stream, std::optional<platform::LocalCaller> caller, Place place);
  /// Receives the greeting, and names the caller; nothing when it was refused.
  std::optional<platform::LocalCaller> Greet(MessageStream& stream, std::optional<platform::LocalCaller> caller);
  /// Null: refused. `caller`: null while it is not known.
  Place Enter(MessageStream& stream, const platform::LocalCaller* caller);
  void Refuse(MessageStream& stream, Refusal refusal, const platform::LocalCaller* caller, const char* reason);
  void CountBroken(const MessageStream& stream, platform::ChannelWait wait, const platform::LocalCaller* caller);
  platform::SteadyTime In(std::chrono::milliseconds patience) const { return runtime_.clock().Steady() + patience; }
  bool IsStopping() const { return runtime_.Wait(*stop_, std::chrono::milliseconds(0)) == 0; }
  /// The last act of a conversation's thread.
  void End(Conversation conversation);

  platform::Runtime& runtime_;
  const Log& log_;
  Refusals& refusals_;
  const Answerer answerer_;
  const ChannelLimits limits_;
  const Listening listening_;
  const std::unique_ptr<platform::Event> stop_;   ///< Manual-reset.
  const std::unique_ptr<platform::Event> ended_;  ///< Auto-reset; a conversation ended.
  CallerPlaces places_;
  std::filesystem::path place_;
  OwnSession own_session_;
  std::unique_ptr<platform::LocalListener> listener_;  ///< Of the listening thread, once it runs.
  std::thread thread_;
  std::mutex mutex_;  ///< Guards what follows; held for a look, and while a thread is started.
  Conversation last_ = 0;
  std::size_t running_ = 0;  ///< Conversations that have not come to their end.
  std::map<Conversation, std::thread> threads_;
  std::thread finished_;  ///< The one that ended last; who ends next joins it, so that no more than one is left.
};

}  // namespace TVK

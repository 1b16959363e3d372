// What the test tells the log service of event_log_stand_in.cpp, and hears of it. Behind <windows.h>.
#pragma once

#include <cstdint>

namespace event_log_stand_in {

struct Channel {
  const wchar_t* name = L"";
  std::uint64_t oldest = 1;  ///< The number of its oldest event; the others follow.
  std::uint64_t count = 0;
  std::uint64_t last_wanted = UINT64_MAX;  ///< Events behind this number are of no subscription.
  std::uint64_t logged_behind_newest = 0;  ///< So many more come once the newest was asked for.
  std::uint64_t logged_behind_last = 0;    ///< So many more come once a subscription had nothing more.
  DWORD open_error = 0;                    ///< What opening it comes to.
  DWORD next_error = 0;                    ///< What EvtNext comes to, as many times as `errors_left` says.
  int errors_left = 0;
};

struct Script {
  Channel channels[3];
  bool no_service;        ///< Subscribing gives nothing, and no reason.
  int reads_with_signal;  ///< How often events were asked for while their signal was set.
  DWORD largest_batch;    ///< The most events that were asked for at once.
};

/// The only one; exported as "Script".
using GetScript = Script*(WINAPI*)();

/// Signals the subscriptions that have something to give; exported as "TellAll".
using TellAll = void(WINAPI*)();

}  // namespace event_log_stand_in

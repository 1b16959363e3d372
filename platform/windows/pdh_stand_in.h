// What the test tells the performance data helper of pdh_stand_in.cpp, and hears of it. Behind <windows.h>.
#pragma once

namespace pdh_stand_in {

struct Script {
  /// How the counters that there are begin and end: "\Processor(" and "% Processor Time"; null behind the last one.
  struct {
    const wchar_t* set;
    const wchar_t* counter;
  } counters[4];
  LONG open_status;     ///< What opening a query comes to.
  LONG collect_status;  ///< What a reading comes to.
  LONG value_status;    ///< What asking for its value comes to; each value then has `state` and `value`.
  DWORD state;          ///< CStatus
  LONG value;
  DWORD instances;     ///< How many a wildcard finds, "_Total", which comes last, among them. 0: none at all.
  bool without_total;  ///< "_Total" is not among them.
  bool growing;        ///< One more comes each time that the length is asked for.

  wchar_t asked[4][64];  ///< The paths that were asked for, in their order.
  int asked_count;
  int open_queries;
};

/// The only one; exported as "Script".
using GetScript = Script*(WINAPI*)();

}  // namespace pdh_stand_in

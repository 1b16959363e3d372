// The boundary at which an exception becomes a log line.
#pragma once

#include <exception>
#include <string>

#include "client/log/log.h"
#include "client/text/string.h"

/// Runs `call`; false when it threw, which is then logged as "CALLER failed: WHAT".
template <typename Call>
bool GuardedCall(const TVK::Log& log, const std::wstring& caller, const Call& call) {
  try {
    call();
    return true;
  } catch (const std::exception& failure) {
    log.e(L"%s failed: %s", caller, TVK::String::UTF8ToUTF16(failure.what()));
  } catch (...) {
    log.e(L"%s failed: %s", caller, L"unknown exception");
  }
  return false;
}

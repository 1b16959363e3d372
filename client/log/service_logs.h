// The logs of the service that are no dataset's. Whoever opens one names it here, and whoever deletes logs knows it so.
#pragma once

#include <array>
#include <string_view>

namespace TVK {

inline constexpr std::array<std::wstring_view, 16> kServiceLogs = {
    L"BatteryInfo.log",         L"ConfigPolicyAgent.log", L"Datasets.log",     L"Erasure.log",
    L"EventDataLogging.log",    L"EventManager.log",      L"LocalChannel.log", L"PolicyWatch.log",
    L"PublisherSubscriber.log", L"SMBiosTool.log",        L"SecondTick.log",   L"SessionWriter.log",
    L"StorageCollector.log",    L"SystemEvents.log",      L"TimerThread.log",  L"UserProcessAgent.log"};

/// `name`, which is one of them: another one does not compile.
consteval const wchar_t* ServiceLog(const wchar_t* name) {
  for (const std::wstring_view each : kServiceLogs) {
    if (each == name) return name;
  }
  throw "a log that nobody would delete";
}

}  // namespace TVK

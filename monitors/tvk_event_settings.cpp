#include "monitors/tvk_event_settings.h"

namespace TVK {
namespace {

// An hour of the most is about 3 MiB of records.
const IntegerSetting& EventsPerHour() {
  static const auto* const setting =  // never destroyed: settings are read until the process ends
      new IntegerSetting{L"EventsPerHour", 60, 1, 3600, L"events that are taken in an hour; those beyond are refused"};
  return *setting;
}

SettingReading ReadSenders(const SettingTexts& settings, bool& users_may_send) {
  constexpr wchar_t kAdministrators[] = L"administrators";
  SettingReading reading{L"Senders", kAdministrators, false,
                         L"missing", false,           L"who may hand events over, beside administrators: users"};
  const auto found = settings.find(reading.key);
  if (found == settings.end()) return reading;
  users_may_send = found->second == L"users";
  reading.mistake = !users_may_send && found->second != kAdministrators;
  reading.from_policy = !reading.mistake;
  reading.reason = reading.mistake ? L"only \"administrators\" and \"users\" are known" : L"";
  if (reading.from_policy) reading.value_in_force = found->second;
  return reading;
}

}  // namespace

TvkEventSettings ReadTvkEventSettings(const SettingTexts& settings) {
  TvkEventSettings result;
  SettingReading events;
  result.events_per_hour = static_cast<std::size_t>(EventsPerHour().Read(settings, events));
  result.readings = {events, ReadSenders(settings, result.users_may_send)};
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace TVK

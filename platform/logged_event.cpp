#include "platform/logged_event.h"

#include <cstdio>

#include "platform/xml_text.h"

namespace platform {
namespace {

void AppendElement(std::string_view name, const std::string& value, std::string& xml) {
  xml.append("<").append(name).append(">");
  AppendXmlText(value, xml);
  xml.append("</").append(name).append(">");
}

void AppendAttribute(std::string_view name, std::string_view value, std::string& xml) {
  xml.append(" ").append(name).append("=\"");
  AppendXmlText(value, xml);
  xml += '"';
}

/// In UTC, to the millisecond.
std::string TimeText(WallTime time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

EventLogValue Number(const std::optional<std::uint64_t>& number) {
  return number ? EventLogValue(*number) : EventLogValue();
}

}  // namespace

EventLogValue ValueAt(const LoggedEvent& event, std::string_view path) {
  if (path == "Event/System/Channel") return event.channel;
  if (path == "Event/System/Provider/@Name") return event.provider;
  if (path == "Event/System/Provider/@EventSourceName") return event.provider;
  if (path == "Event/System/EventID") return std::uint64_t{event.id};
  if (path == "Event/System/Level") return std::uint64_t{event.level};
  if (path == "Event/System/TimeCreated/@SystemTime") return event.time;
  if (path == "Event/System/EventRecordID") return Number(event.record_id);
  if (path == "Event/System/Execution/@ProcessID") return Number(event.process);
  if (path == "Event/System/Execution/@ThreadID") return Number(event.thread);
  return {};
}

std::string XmlOf(const LoggedEvent& event) {
  std::string xml = "<Event><System><Provider";
  AppendAttribute("Name", event.provider, xml);
  xml += "/>";
  AppendElement("EventID", std::to_string(event.id), xml);
  AppendElement("Level", std::to_string(event.level), xml);
  xml += "<TimeCreated";
  AppendAttribute("SystemTime", TimeText(event.time), xml);
  xml += "/>";
  if (event.record_id) AppendElement("EventRecordID", std::to_string(*event.record_id), xml);
  if (event.process || event.thread) {
    xml += "<Execution";
    if (event.process) AppendAttribute("ProcessID", std::to_string(*event.process), xml);
    if (event.thread) AppendAttribute("ThreadID", std::to_string(*event.thread), xml);
    xml += "/>";
  }
  AppendElement("Channel", event.channel, xml);
  xml += "</System><EventData>";
  for (const EventDataField& field : event.data) {
    xml += "<Data";
    if (!field.name.empty()) AppendAttribute("Name", field.name, xml);
    xml += '>';
    AppendXmlText(field.value, xml);
    xml += "</Data>";
  }
  return xml + "</EventData></Event>";
}

EventLogRecord RecordOf(const LoggedEvent& event, const EventLogReaderSettings& settings) {
  EventLogRecord record;
  record.values.reserve(settings.value_paths.size());
  for (const std::string& path : settings.value_paths)
    record.values.push_back(ValueAt(event, path));
  if (settings.xml) record.xml = XmlOf(event);
  return record;
}

}  // namespace platform

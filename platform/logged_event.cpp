#include "platform/logged_event.h"

#include <array>
#include <cstdio>

namespace platform {
namespace {

/// How many bytes the character at the begin of `text` has; 0 when it is none that XML 1.0 may hold (its production
/// Char), ill-formed UTF-8 included.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return first >= 0x20 || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  static constexpr std::array<unsigned, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  unsigned code = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  const bool allowed = code >= kLeast[length] && code <= 0x10FFFF && !surrogate && code != 0xFFFE && code != 0xFFFF;
  return allowed ? length : 0;
}

/// A carriage return is written by its number, since XML reads a bare one as a line's end.
void AppendText(std::string_view text, std::string& xml) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) {
      xml += "\xEF\xBF\xBD";
      text.remove_prefix(1);
      continue;
    }
    switch (text.front()) {
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '&':
        xml += "&amp;";
        break;
      case '"':
        xml += "&quot;";
        break;
      case '\r':
        xml += "&#13;";
        break;
      default:
        xml.append(text.substr(0, length));
    }
    text.remove_prefix(length);
  }
}

void AppendElement(std::string_view name, const std::string& value, std::string& xml) {
  xml.append("<").append(name).append(">");
  AppendText(value, xml);
  xml.append("</").append(name).append(">");
}

void AppendAttribute(std::string_view name, std::string_view value, std::string& xml) {
  xml.append(" ").append(name).append("=\"");
  AppendText(value, xml);
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
    AppendText(field.value, xml);
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

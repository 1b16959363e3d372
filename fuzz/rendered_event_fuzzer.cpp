// What event logs render: an entry of the journal, which must come to well-formed XML that says the same, and the XML
// of any event, whose data another reader finds alike, and of which a report of a crash names no folder.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "monitors/logs/crash_report.h"
#include "monitors/logs/event_data.h"
#include "platform/linux/journal_entry.h"
#include "testing/xpath_engine.h"

namespace {

using Items = std::vector<std::pair<std::string, std::string>>;

void Check(bool holds) {
  if (!holds) std::abort();
}

bool IsNamed(const xmlNode& node, const char* name) {
  return node.type == XML_ELEMENT_NODE && node.ns == nullptr && xmlStrEqual(node.name, BAD_CAST name) != 0;
}

std::string Take(xmlChar* text) {
  const std::unique_ptr<xmlChar, decltype(xmlFree)> owned(text, xmlFree);
  return owned == nullptr ? std::string() : reinterpret_cast<const char*>(owned.get());
}

/// The items by the other reader; nothing when the document is not of the form that events have.
std::optional<Items> ItemsByLibrary(const std::string& xml) {
  // It makes blanks of line ends and tabs in attributes; sections, comments and declarations no event has.
  if (xml.find_first_of("\r\n\t") != xml.npos || xml.find("<!") != xml.npos || xml.find("<?") != xml.npos) return {};
  const TVK::XmlDocument document = TVK::ParseXml(xml);
  if (document == nullptr) return {};
  const xmlNode* const event = xmlDocGetRootElement(document.get());
  if (!IsNamed(*event, "Event") || event->children == nullptr || event->children->next != nullptr) return {};
  const xmlNode& data = *event->children;
  if (!IsNamed(data, "EventData") || data.properties != nullptr) return {};
  Items items;
  for (xmlNode* item = data.children; item != nullptr; item = item->next) {
    const bool plain =
        item->children == nullptr || (item->children->type == XML_TEXT_NODE && item->children->next == nullptr);
    if (!IsNamed(*item, "Data") || !plain) return {};
    items.emplace_back(Take(xmlGetNoNsProp(item, BAD_CAST "Name")), Take(xmlNodeGetContent(item)));
  }
  return items;
}

Items ItemsOf(const std::string& xml) {
  Items items;
  for (const TVK::EventDataItem& item : TVK::EventDataItems(xml))
    items.emplace_back(item.name, item.value);
  return items;
}

void CheckJournalEntry(std::string_view text) {
  std::vector<std::string_view> fields;
  while (!text.empty()) {
    fields.push_back(text.substr(0, text.find('\0')));
    text.remove_prefix(std::min(fields.back().size() + 1, text.size()));
  }
  const platform::LoggedEvent event = platform::EventOfJournal(fields, platform::WallTime());
  platform::JournalFieldFilter filter;
  std::erase_if(fields, [&](std::string_view field) { return !filter.Takes(field); });
  Check(fields.size() <= 20 && platform::EventOfJournal(fields, platform::WallTime()).provider == event.provider);
  Check(event.level >= 1 && event.level <= 5 && event.id <= 65535 && !event.provider.empty());
  Check(event.channel == "Application" || event.channel == "Security" || event.channel == "Setup" ||
        event.channel == "System");
  const std::string xml = platform::XmlOf(event);
  Check(TVK::ParseXml(xml) != nullptr);
  const Items items = ItemsOf(xml);
  Check(items.size() == event.data.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    Check(items[i].first == event.data[i].name);
    // Every byte that is none of UTF-8 or XML became a character of three.
    Check(items[i].second == event.data[i].value || items[i].second.find("\xEF\xBF\xBD") != std::string::npos);
  }
}

void CheckCrashReports(const std::string& xml) {
  for (const wchar_t* const provider :
       {L"Application Error", L"Application Hang", L"Microsoft-Windows-WER-SystemErrorReporting",
        L"Microsoft-Windows-Kernel-Power", L"Microsoft-Windows-WHEA-Logger", L"systemd-coredump", L"kernel"}) {
    const auto report = TVK::ReadCrashReport({.provider_name = provider, .time_created = {}, .fields = {}}, xml);
    if (!report) continue;
    for (const wchar_t* const key : {L"Program", L"Module"}) {
      const auto value = report->data.find(key);
      Check(value == report->data.end() || value->second.find_first_of(L"/\\") == value->second.npos);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckJournalEntry(text);
  const Items items = ItemsOf(text);
  const auto expected = ItemsByLibrary(text);
  Check(!expected || *expected == items);
  CheckCrashReports(text);
  return 0;
}

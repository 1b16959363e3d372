// The builder of event-log queries: what it accepts gives XML and XPath that another engine reads, in which no list of
// conditions is empty or too long, and which selects the ids that the list names and no others.
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <bitset>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "client/text/string.h"
#include "monitors/logs/windows_logs_helper.h"

namespace {

using TVK::EventIdItem;
using Document = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using Context = std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)>;
using Object = std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)>;
using Ids = std::bitset<65536>;

void Check(bool holds) {
  if (!holds) std::abort();
}

Document Parse(const std::string& xml) {
  return Document(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "query.xml", nullptr, XML_PARSE_NONET),
                  xmlFreeDoc);
}

/// Every event is of this moment.
void TimeDiff(xmlXPathParserContextPtr context, int arguments) {
  Check(arguments == 1);
  xmlXPathFreeObject(valuePop(context));
  valuePush(context, xmlXPathNewFloat(0));
}

/// Whether an event of this id and level answers the XPath.
bool Answers(const std::string& xpath, unsigned id, int level) {
  const Document event = Parse("<Event><System><EventID>" + std::to_string(id) + "</EventID><Level>" +
                               std::to_string(level) + "</Level><TimeCreated SystemTime='now'/></System></Event>");
  const Context context(xmlXPathNewContext(event.get()), xmlXPathFreeContext);
  context->node = reinterpret_cast<xmlNode*>(event.get());
  xmlXPathRegisterFunc(context.get(), BAD_CAST "timediff", TimeDiff);
  const Object found(xmlXPathEvalExpression(BAD_CAST xpath.c_str(), context.get()), xmlXPathFreeObject);
  Check(found != nullptr && found->type == XPATH_NODESET);
  return found->nodesetval != nullptr && found->nodesetval->nodeNr > 0;
}

std::size_t CountOf(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + what.size()))
    ++count;
  return count;
}

unsigned Number(std::wstring_view digits) {
  return static_cast<unsigned>(std::stoul(std::wstring(digits)));
}

/// Whether one of the elements of that name and channel takes an event of this id.
bool Takes(const xmlNode* query, const std::string& element, const std::string& channel, unsigned id, int level) {
  for (const xmlNode* node = query->children; node != nullptr; node = node->next) {
    const std::unique_ptr<xmlChar, decltype(xmlFree)> path(xmlGetProp(node, BAD_CAST "Path"), xmlFree);
    const std::unique_ptr<xmlChar, decltype(xmlFree)> xpath(xmlNodeGetContent(node), xmlFree);
    const std::string text = reinterpret_cast<const char*>(xpath.get());
    Check(CountOf(text, "EventID") + CountOf(text, "Level") + CountOf(text, "TimeCreated") <=
          TVK::WindowsLogsHelper::kMostConditions);
    const bool asked =
        element == reinterpret_cast<const char*>(node->name) && channel == reinterpret_cast<const char*>(path.get());
    if (asked && Answers(text, id, level)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kHead = 3;
  constexpr std::size_t kLongest = 300;
  if (size < kHead || size > kLongest) return 0;
  const std::wstring channels = TVK::String::UTF8ToUTF16(std::bitset<4>(data[0]).to_string());
  const std::wstring levels = TVK::String::UTF8ToUTF16(std::bitset<8>(data[1]).to_string());
  const std::string list(reinterpret_cast<const char*>(data) + kHead, size - kHead);
  const std::wstring ids = TVK::String::UTF8ToUTF16(list);
  std::wstring query;
  const bool made = TVK::WindowsLogsHelper::generateQuery(channels, ids, levels, data[2], query);
  TVK::EventLogSelection selection;
  std::wstring fault;
  Check(made == TVK::WindowsLogsHelper::ReadSelection(channels, ids, levels, selection, fault));
  Check(made != query.empty());
  if (!made) return 0;

  const Document document = Parse(TVK::String::UTF16ToUTF8(query));
  Check(document != nullptr);
  const xmlNode* const elements = xmlDocGetRootElement(document.get())->children;
  Ids selected;
  Ids suppressed;
  bool all = true;
  Ids at_edges;  // asking for each of 65536 would take too long
  for (const EventIdItem& item : selection.ids) {
    const unsigned first = Number(item.first);
    const unsigned last = item.last.empty() ? first : Number(item.last);
    all = all && item.suppressed;
    for (unsigned id = first; id <= last; ++id)
      (item.suppressed ? suppressed : selected).set(id);
    for (const unsigned id : {first, last, first == 0 ? 0 : first - 1, last == 65535 ? last : last + 1})
      at_edges.set(id);
  }
  at_edges.set(data[2]);
  const int level = selection.levels.empty() ? 3 : selection.levels.front();
  const std::string channel = TVK::String::UTF16ToUTF8(selection.channels.front());
  for (unsigned id = 0; id < at_edges.size(); ++id) {
    if (!at_edges[id]) continue;
    Check(Takes(elements, "Select", channel, id, level) == (all || selected[id]));
    Check(Takes(elements, "Suppress", channel, id, level) == suppressed[id]);
  }
  return 0;
}

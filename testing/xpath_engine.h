// Structured queries of event logs by an engine that is not ours: libxml2's. In a header, so that fuzz targets need no
// library of the tests.
#pragma once

#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace TVK {

using XmlDocument = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

/// Null when it is not well-formed.
inline XmlDocument ParseXml(const std::string& xml) {
  constexpr int kOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
  return {xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "event.xml", nullptr, kOptions), xmlFreeDoc};
}

/// An element Select or Suppress of a query.
struct QueryElement {
  int query = 0;  ///< Of which Query of the list, from 0.
  bool suppress = false;
  std::string channel;
  std::string xpath;
};

inline std::vector<QueryElement> QueryElements(const xmlDoc& list) {
  using Text = std::unique_ptr<xmlChar, decltype(xmlFree)>;
  const auto text = [](const Text& from) { return std::string(reinterpret_cast<const char*>(from.get())); };
  std::vector<QueryElement> elements;
  int index = 0;
  for (const xmlNode* query = xmlDocGetRootElement(&list)->children; query != nullptr; query = query->next, ++index) {
    for (const xmlNode* node = query->children; node != nullptr; node = node->next) {
      elements.push_back({index, xmlStrEqual(node->name, BAD_CAST "Suppress") != 0,
                          text(Text(xmlGetProp(node, BAD_CAST "Path"), xmlFree)),
                          text(Text(xmlNodeGetContent(node), xmlFree))});
    }
  }
  return elements;
}

/// Whether the event answers the XPath at that age in milliseconds, which timediff() gives.
inline bool AnswersXPath(const xmlDoc& event, const std::string& xpath, double age = 0) {
  static thread_local double present_age = 0;
  present_age = age;
  const std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)> context(
      xmlXPathNewContext(const_cast<xmlDoc*>(&event)), xmlXPathFreeContext);
  context->node = reinterpret_cast<xmlNode*>(const_cast<xmlDoc*>(&event));
  xmlXPathRegisterFunc(context.get(), BAD_CAST "timediff", [](xmlXPathParserContextPtr call, int /*arguments*/) {
    xmlXPathFreeObject(valuePop(call));
    valuePush(call, xmlXPathNewFloat(present_age));
  });
  const std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)> found(
      xmlXPathEvalExpression(BAD_CAST xpath.c_str(), context.get()), xmlXPathFreeObject);
  if (found == nullptr || found->type != XPATH_NODESET) throw std::invalid_argument(xpath);
  return found->nodesetval != nullptr && found->nodesetval->nodeNr > 0;
}

}  // namespace TVK

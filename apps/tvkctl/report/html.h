// Text that is put into a page.
#pragma once

#include <string>
#include <string_view>

#include "client/text/string.h"

namespace tvkctl {

/// `text`, UTF-8, as it may stand between tags and in quoted attributes: nothing in it begins or ends anything, or
/// turns the direction of what stands behind it. Pure; any thread.
inline std::string HtmlText(std::string_view text) {
  std::string escaped;
  for (const char c : TVK::HarmlessText(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

/// `<tag>text</tag>` with the text made harmless.
inline std::string HtmlElement(std::string_view tag, std::string_view text) {
  const std::string name(tag);
  return '<' + name + '>' + HtmlText(text) + "</" + name.substr(0, name.find(' ')) + '>';
}

}  // namespace tvkctl

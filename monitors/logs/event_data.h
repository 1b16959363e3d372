// The data of an event out of its XML. Pure functions; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TVK {

/// The element EventData out of an event's XML as it stands there; empty when it is empty, is not there or does not
/// end.
std::string_view EventDataElement(std::string_view xml);

struct EventDataItem {
  std::string name;  ///< Empty: it has none, as the older providers' have none.
  std::string value;
};

/// The elements Data of an event's EventData (UTF-8), in their order. Where the XML is damaged, those before that.
std::vector<EventDataItem> EventDataItems(std::string_view xml);

}  // namespace TVK

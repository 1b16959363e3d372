// Structured queries of event logs as XML: what they ask of which channel. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// One element of a query, "<Select Path='System'>*</Select>".
struct EventQueryElement {
  bool suppress = false;  ///< Takes out what the Selects of its query take.
  std::string channel;
  std::string xpath;  ///< The characters that the XML stands for. Not looked at.
  std::string text;   ///< The element as it stands in the query.
};

/// The elements of one Query.
using EventQuery = std::vector<EventQueryElement>;

/// Reads "<QueryList><Query>", elements Select and Suppress, "</Query>", more of these, "</QueryList>", in UTF-8. What
/// else stands in a tag than the path is passed over. Nothing for a text of another form, which comments, declarations
/// and entities of one's own are, and for one without a Select.
std::optional<std::vector<EventQuery>> ReadEventQueries(std::string_view text);

/// What a whole query asks of one channel, as a query of its own.
struct ChannelQuery {
  std::string channel;
  std::string text;
};

/// In the order in which the channels are first selected. Suppressed events of channels of which nothing is selected
/// are left out.
std::vector<ChannelQuery> QueriesByChannel(const std::vector<EventQuery>& queries);

}  // namespace platform

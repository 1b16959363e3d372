#include "client/report/descriptions.h"

#include <algorithm>

#include "client/records/record_fields.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::size_t kMostDescriptions = 100;
constexpr std::size_t kMostFacts = 64;
constexpr std::size_t kMostChanges = 20;
// Of all together: a page and an answer of the service have an end.
constexpr std::size_t kMostBytes = 384 << 10;
constexpr std::size_t kLongestText = 4096;  // the memory modules of a server are a text of that order

// At most so many bytes, at the end of a character.
std::string Cut(std::string text) {
  if (text.size() <= kLongestText) return text;
  std::size_t end = kLongestText;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
    --end;
  text.resize(end);
  return text + "...";
}

std::string Utf8(const std::wstring& text) {
  return Cut(String::UTF16ToUTF8(text));
}

template <typename Record, typename Fields>
void Append(std::vector<std::pair<std::string, std::string>>& facts, const Record& record, const Fields& fields) {
  for (const auto& field : fields) {
    const std::wstring& value = (record.*field.get)();
    if (field.compared && !value.empty()) facts.emplace_back(field.key, Utf8(value));
  }
}

std::string ValueOf(const std::vector<std::pair<std::string, std::string>>& facts, const std::string& key) {
  const auto found = std::ranges::find(facts, key, &std::pair<std::string, std::string>::first);
  return found == facts.end() ? std::string() : found->second;
}

std::size_t BytesOf(const Description& description) {
  std::size_t bytes = description.dataset.size();
  for (const auto& [key, value] : description.facts)
    bytes += key.size() + value.size();
  for (const Change& change : description.changes) {
    for (const FactChange& fact : change.facts)
      bytes += fact.key.size() + fact.before.size() + fact.after.size();
  }
  return bytes;
}

}  // namespace

bool Descriptions::Add(std::pair<std::string, std::int64_t> key, Facts facts, std::int64_t seconds,
                       std::int64_t since) {
  if (facts.size() > kMostFacts) facts.resize(kMostFacts);
  auto found = descriptions_.find(key);
  if (found == descriptions_.end()) {
    if (descriptions_.size() >= kMostDescriptions) {
      ++left_out_;
      return false;
    }
    Description description;
    description.dataset = key.first;
    description.first_seconds = seconds;
    found = descriptions_.emplace(std::move(key), std::move(description)).first;
  }
  Description& description = found->second;
  const bool first = description.written++ == 0;
  description.newest_seconds = seconds;
  Change change{seconds, {}};
  for (const auto& [name, value] : facts) {
    const std::string before = ValueOf(description.facts, name);
    if (before != value) change.facts.push_back({name, before, value});
  }
  for (const auto& [name, value] : description.facts) {
    if (ValueOf(facts, name).empty()) change.facts.push_back({name, value, {}});
  }
  description.facts = std::move(facts);
  if (first) return false;
  if (change.facts.empty()) return true;
  if (seconds < since) return false;
  description.changes.push_back(std::move(change));
  if (description.changes.size() > kMostChanges) {
    description.changes.erase(description.changes.begin());
    ++description.changes_left_out;
  }
  return false;
}

bool Descriptions::Add(std::int64_t series, const DatasetContext& context, std::int64_t seconds, std::int64_t since) {
  Facts facts;
  for (const auto& [key, value] : context.item_data())
    facts.emplace_back(Utf8(key), Utf8(value));
  return Add({Utf8(context.dataset_name()), series}, std::move(facts), seconds, since);
}

void Descriptions::Add(const DeviceContext& context, std::int64_t seconds, std::int64_t since) {
  Facts facts;
  Append(facts, context.device_info(), kDeviceInfoFields);
  Append(facts, context.region_info(), kRegionInfoFields);
  Append(facts, context.tvk_info(), kTvkInfoFields);
  Add({std::string(), 0}, std::move(facts), seconds, since);
}

std::vector<Description> Descriptions::Take(std::size_t& left_out) {
  std::vector<Description> all;
  std::size_t bytes = 0;
  for (auto& [key, description] : descriptions_) {
    bytes += BytesOf(description);
    if (bytes <= kMostBytes) {
      all.push_back(std::move(description));
    } else {
      ++left_out;
    }
  }
  descriptions_.clear();
  left_out += left_out_;
  return all;
}

}  // namespace TVK

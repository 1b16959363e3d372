#include "apps/tvkctl/offered_values.h"

#include <string_view>

namespace tvkctl {
namespace {

// The parser has no room for words of ours at an option but the name of a validator.
constexpr std::string_view kOffers = "offers";

}  // namespace

CLI::Option* Offer(CLI::Option* option, const std::vector<std::string>& values) {
  std::string name(kOffers);
  for (const std::string& value : values)
    name += ' ' + value;
  return option->check(CLI::Validator([](std::string&) { return std::string(); }, "", name));
}

CLI::Option* TakeOneOf(CLI::Option* option, const std::vector<std::string>& values) {
  return Offer(option, values)->check(CLI::IsMember(values).description(""));
}

std::string OfferedValues(CLI::Option& option) {
  try {
    for (int i = 0;; ++i) {
      const std::string& name = option.get_validator(i)->get_name();
      if (name.starts_with(kOffers)) return name.substr(kOffers.size() + 1);
    }
  } catch (const CLI::OptionNotFound&) {  // behind the last one
    return {};
  }
}

}  // namespace tvkctl

// Command lines: an option whose value is an empty text is a mistake.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// Makes every option of `app` and of its commands refuse an empty value: that is what a script hands over for a
/// variable that is not set, and it must not count as an option that is absent. To be called when all options are
/// there.
inline void RefuseEmptyValues(CLI::App& app) {
  const CLI::Validator refuse([](std::string& value) { return std::string(value.empty() ? "the value is empty" : ""); },
                              "");
  for (CLI::Option* const option : app.get_options()) {
    const bool takes_value = option->get_items_expected_min() > 0;
    if (takes_value) option->check(refuse);
  }
  for (CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
    RefuseEmptyValues(*command);
}

#include "apps/manual_page.h"

#include <algorithm>
#include <vector>

namespace {

std::string UpperCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; });
  return text;
}

// Text that is not to be broken or taken for a request: a hyphen is a minus sign, which readers copy into a shell.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

// Lines of their own. A request begins a line; behind \& nothing is one.
std::string Lines(const std::string& text) {
  std::string lines = "\\&";
  for (const char c : Escaped(text))
    lines += c == '\n' ? std::string("\n\\&") : std::string(1, c);
  return lines + '\n';
}

std::string Bold(const std::string& text) {
  return "\\fB" + Escaped(text) + "\\fR";
}

std::string Italic(const std::string& text) {
  return "\\fI" + Escaped(text) + "\\fR";
}

/// "--kind KIND", "FILE".
std::string Usage(const CLI::Option& option) {
  const std::string name = option.get_positional() ? Italic(option.get_name(true)) : Bold(option.get_name());
  const std::string value = option.get_type_name();
  return value.empty() || option.get_items_expected_max() == 0 ? name : name + ' ' + Italic(value);
}

using Options = std::vector<const CLI::Option*>;

/// In the order of the command line: those with names, then the others. Without --help, which every command has.
Options OptionsOf(const CLI::App& command) {
  Options options = command.get_options([](const CLI::Option* option) { return option->get_name() != "--help"; });
  // Not the one of ranges, which clang 14 cannot build.
  std::stable_partition(options.begin(), options.end(),
                        [](const CLI::Option* option) { return !option->get_positional(); });
  return options;
}

std::string Synopsis(const std::string& path, const Options& options) {
  std::string synopsis = ".P\n" + Bold(path);
  for (const CLI::Option* const option : options)
    synopsis += option->get_required() ? ' ' + Usage(*option) : " [" + Usage(*option) + ']';
  return synopsis + '\n';
}

std::string Descriptions(const Options& options) {
  std::string text;
  for (const CLI::Option* const option : options)
    text += ".TP\n" + Usage(*option) + '\n' + Lines(option->get_description());
  return text;
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

void AddCommands(const CLI::App& app, const std::string& path, std::string& page) {
  for (const CLI::App* const command : CommandsOf(app)) {
    const std::string name = path + ' ' + command->get_name();
    if (CommandsOf(*command).empty()) {
      const Options options = OptionsOf(*command);
      page += ".SS " + Escaped(name) + '\n' + Lines(command->get_description()) + Synopsis(name, options) +
              Descriptions(options);
    }
    AddCommands(*command, name, page);
  }
}

}  // namespace

std::string ManualPage(const CLI::App& app, const ManualPageFacts& facts) {
  const std::string name = app.get_name();
  std::string what = app.get_description();
  if (what.ends_with('.')) what.pop_back();
  const Options options = OptionsOf(app);
  std::string page = ".TH " + UpperCase(name) + ' ' + std::to_string(facts.section) + " \"" + facts.date + "\" \"" +
                     name + ' ' + facts.version + "\"\n";
  page += ".SH NAME\n" + Escaped(name) + " \\- " + Escaped(what) + '\n';
  page += ".SH SYNOPSIS\n" + Bold(name) + " [" + Italic("OPTIONS") + "] [" + Italic("COMMAND") + "]\n";
  page += ".SH OPTIONS\n" + Descriptions(options);
  page += ".SH COMMANDS\n";
  AddCommands(app, name, page);
  for (const HelpSection& section : facts.sections)
    page += ".SH " + UpperCase(section.title) + '\n' + Lines(section.text);
  return page + ".SH SEE ALSO\n" + Escaped(facts.see_also) + '\n';
}

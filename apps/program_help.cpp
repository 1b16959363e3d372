#include "apps/program_help.h"

#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "client/text/nearest_text.h"
#include "client/text/string.h"
#include "platform/terminal.h"

namespace {

using TVK::String;

constexpr std::size_t kDescriptions = 30;  // CLI11's column of them
constexpr std::size_t kNarrowest = kDescriptions + 20;
constexpr std::size_t kNoTerminal = 100;

class FittedHelp final : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
    return WrapHelp(Formatter::make_help(app, std::move(name), mode), platform::TerminalWidth().value_or(kNoTerminal));
  }
};

/// The command that a line named, as far as it is one, and how it is called: "tvkctl policy".
struct Chosen {
  const CLI::App* command;
  std::string path;
};

Chosen ChosenBy(const CLI::App& app) {
  Chosen chosen{&app, app.get_name()};
  for (auto next = app.get_subcommands(); !next.empty(); next = next.front()->get_subcommands()) {
    chosen.command = next.front();
    chosen.path += ' ' + next.front()->get_name();
  }
  return chosen;
}

std::vector<std::wstring> CommandsOf(const CLI::App& app) {
  std::vector<std::wstring> names;
  for (const CLI::App* const each : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(String::UTF8ToUTF16(each->get_name()));
  return names;
}

std::vector<std::wstring> OptionsOf(const CLI::App& program, const CLI::App& command) {
  std::vector<std::wstring> names;
  for (const CLI::App* const app : {&command, &program}) {
    for (const CLI::Option* const option : app->get_options()) {
      for (const std::string& name : option->get_lnames())
        names.push_back(String::UTF8ToUTF16("--" + name));
    }
  }
  return names;
}

std::string Unexpected(const CLI::App& program) {
  const Chosen chosen = ChosenBy(program);
  const std::vector<std::string> unexpected = program.remaining(true);
  std::string word = unexpected.empty() ? std::string() : unexpected.front();
  const bool is_option = word.starts_with('-');
  if (is_option) word.erase(std::min(word.find('='), word.size()));
  const std::vector<std::wstring> known = is_option ? OptionsOf(program, *chosen.command) : CommandsOf(*chosen.command);
  std::string what = " is not expected by \"" + chosen.path + '"';
  if (is_option) what = " is no option of \"" + chosen.path + '"';
  if (!is_option && !known.empty()) what = " is no command of \"" + chosen.path + '"';
  return program.get_name() + ": \"" + TVK::HarmlessText(word) + '"' + what +
         String::UTF16ToUTF8(TVK::DidYouMean(String::UTF8ToUTF16(word), known)) + "; " + chosen.path +
         " --help tells what it takes\n";
}

}  // namespace

void SetUpHelp(CLI::App& app, std::span<const HelpSection> sections) {
  std::string footer;
  for (const HelpSection& section : sections)
    footer += (footer.empty() ? "" : "\n") + std::string(section.title) + ": " + section.text;
  app.footer(footer);
  app.formatter(std::make_shared<FittedHelp>());
}

std::string WrapHelp(const std::string& text, std::size_t width) {
  width = std::max(width, kNarrowest);
  std::istringstream lines(text);
  std::string wrapped;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t indent = line.starts_with(' ') ? kDescriptions : 0;
    while (line.size() > width) {
      const std::size_t blank = line.rfind(' ', width);
      if (blank == line.npos || blank <= indent) break;
      wrapped += line.substr(0, blank) + '\n';
      line = std::string(indent, ' ') + line.substr(blank + 1);
    }
    wrapped += line + '\n';
  }
  return wrapped;
}

void ExplainFailures(CLI::App& app) {
  app.failure_message([](const CLI::App* program, const CLI::Error& failure) {
    if (dynamic_cast<const CLI::ExtrasError*>(&failure) != nullptr) return Unexpected(*program);
    return program->get_name() + ": " + CLI::FailureMessage::simple(program, failure);
  });
}

std::string CommandIsMissing(const CLI::App& app) {
  const Chosen chosen = ChosenBy(app);
  std::string names;
  for (const std::wstring& name : CommandsOf(*chosen.command))
    names += (names.empty() ? "" : ", ") + String::UTF16ToUTF8(name);
  return app.get_name() + ": a command is missing behind \"" + chosen.path + "\": " + names + "; " + chosen.path +
         " --help tells of each\n";
}

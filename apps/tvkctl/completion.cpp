#include "apps/tvkctl/completion.h"

#include <map>

namespace tvkctl {
namespace {

/// What may follow a command, a blank ahead of each: " policy check" has its options, "" the commands.
using WordsByCommand = std::map<std::string, std::string>;

/// `anywhere` are the options of the program itself that a command passes on.
void Collect(const CLI::App& command, const std::string& path, std::string anywhere, WordsByCommand& words) {
  std::string& own = words[path];
  const auto commands = command.get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* each : commands)
    own += ' ' + each->get_name();
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      own += " --" + name;
      const bool takes_value = option->get_items_expected_max() > 0;
      if (path.empty() && command.get_fallthrough() && takes_value) anywhere += " --" + name;
    }
  }
  if (!path.empty()) own += anywhere;
  for (const CLI::App* each : commands)
    Collect(*each, path + ' ' + each->get_name(), anywhere, words);
}

std::string Bash(const std::string& program, const WordsByCommand& words) {
  std::string commands;
  std::string cases;
  for (const auto& [path, own] : words) {
    if (!path.empty()) commands += (commands.empty() ? "" : "|") + ('"' + path + '"');
    cases += "    \"" + path + "\") words=\"" + own.substr(1) + "\" ;;\n";
  }
  return "_" + program + "() {\n" +
         R"(  local chosen= words= i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "$chosen ${COMP_WORDS[i]}" in
      )" +
         commands +
         R"() chosen="$chosen ${COMP_WORDS[i]}" ;;
    esac
  done
  case "$chosen" in
)" + cases +
         R"(  esac
  COMPREPLY=($(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}"))
}
complete -o default -F _)" +
         program + ' ' + program + '\n';
}

std::string PowerShell(const std::string& program, const WordsByCommand& words) {
  std::string table;
  for (const auto& [path, own] : words)
    table += "    '" + path + "' = '" + own.substr(1) + "'\n";
  return "Register-ArgumentCompleter -Native -CommandName " + program + R"( -ScriptBlock {
  param($word, $line, $position)
  $table = @{
)" + table +
         R"(  }
  $path = ''
  foreach ($each in $line.CommandElements | Select-Object -Skip 1) {
    if ($table.ContainsKey("$path $each")) { $path = "$path $each" }
  }
  $table[$path] -split ' ' | Where-Object { $_ -like "$word*" }
}
)";
}

}  // namespace

std::string CompletionScript(const CLI::App& app, const std::string& shell) {
  WordsByCommand words;
  Collect(app, "", "", words);
  if (shell == "powershell") return PowerShell(app.get_name(), words);
  // zsh runs what is made for bash; a variable named "path" would be its own.
  return (shell == "zsh" ? "autoload -U +X bashcompinit && bashcompinit\n" : "") + Bash(app.get_name(), words);
}

}  // namespace tvkctl

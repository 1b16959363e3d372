#include "apps/tvkctl/completion.h"

#include <map>
#include <vector>

#include "apps/tvkctl/offered_values.h"

namespace tvkctl {
namespace {

using WordsByPlace = std::map<std::string, std::string>;

/// A blank stands ahead of each word of a place: " policy check", and "" for the program itself.
struct Words {
  WordsByPlace commands;  ///< What may follow a command.
  WordsByPlace files;     ///< The same for the commands that a file may follow, too.
  WordsByPlace values;    ///< What may follow an option that takes a value, " records --kind"; empty: anything.
};

/// `anywhere` are the options of the program itself that a command passes on.
void Collect(CLI::App& command, const std::string& path, std::vector<CLI::Option*> anywhere, Words& words) {
  std::string own;
  bool takes_file = false;
  const auto commands = command.get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* each : commands)
    own += ' ' + each->get_name();
  std::vector<CLI::Option*> options = command.get_options();
  options.insert(options.end(), anywhere.begin(), anywhere.end());
  for (CLI::Option* option : options) {
    const bool takes_value = option->get_items_expected_max() > 0;
    const std::string offered = OfferedValues(*option);
    if (option->get_positional()) {
      if (!offered.empty()) own += ' ' + offered;
      takes_file = takes_file || option->get_name() == "FILE";
    }
    for (const std::string& name : option->get_lnames()) {
      own += " --" + name;
      if (takes_value) words.values[path + " --" + name] = offered;
    }
    if (path.empty() && command.get_fallthrough() && takes_value) anywhere.push_back(option);
  }
  (takes_file ? words.files : words.commands)[path] = own.substr(1);
  for (CLI::App* each : commands)
    Collect(*each, path + ' ' + each->get_name(), anywhere, words);
}

std::string Bash(const std::string& program, const Words& words) {
  std::string commands;
  std::string cases;
  const auto add = [&](const WordsByPlace& places, const std::string& first) {
    for (const auto& [path, own] : places) {
      if (!path.empty()) commands += (commands.empty() ? "" : "|") + ('"' + path + '"');
      cases += "        \"" + path + "\") " + first + "words=\"" + own + "\" ;;\n";
    }
  };
  add(words.commands, "");
  add(words.files, "[[ $word == -* ]] || return; ");
  std::string values;
  for (const auto& [option, own] : words.values)
    values += "    \"" + option + "\") " + (own.empty() ? "return" : "words=\"" + own + '"') + " ;;\n";
  // bash parts a line at "=", and zsh does not.
  return "_" + program + "() {\n" +
         R"(  local chosen= words= ahead= i before word="${COMP_WORDS[COMP_CWORD]}"
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "$chosen ${COMP_WORDS[i]}" in
      )" +
         commands +
         R"() chosen="$chosen ${COMP_WORDS[i]}" ;;
    esac
  done
  before="${COMP_WORDS[COMP_CWORD - 1]}"
  if [[ $word == --*=* ]]; then
    before="${word%%=*}" ahead="${word%%=*}=" word="${word#*=}"
  elif [[ $word == = ]]; then
    word=
  elif [[ $before == = && $COMP_CWORD -gt 1 ]]; then
    before="${COMP_WORDS[COMP_CWORD - 2]}"
  fi
  case "$chosen $before" in
)" + values +
         R"(    *)
      case "$chosen" in
)" + cases +
         R"(      esac ;;
  esac
  COMPREPLY=($(compgen -P "$ahead" -W "$words" -- "$word"))
}
complete -o default -F _)" +
         program + ' ' + program + '\n';
}

std::string PowerShell(const std::string& program, const Words& words) {
  const auto table = [](const WordsByPlace& places) {
    std::string rows;
    for (const auto& [place, own] : places)
      rows += "    '" + place + "' = '" + own + "'\n";
    return rows;
  };
  std::string files;
  for (const auto& [path, own] : words.files)
    files += (files.empty() ? "'" : ", '") + path + "'";
  return "Register-ArgumentCompleter -Native -CommandName " + program + R"( -ScriptBlock {
  param($word, $line, $position)
  $commands = @{
)" + table(words.commands) +
         table(words.files) + R"(  }
  $files = @()" +
         files +
         R"()
  $values = @{
)" + table(words.values) +
         R"(  }
  $path = ''
  $before = ''
  $ahead = ''
  foreach ($each in $line.CommandElements | Select-Object -Skip 1) {
    if ($each.Extent.EndOffset -ge $position) { break }
    $before = "$each"
    if ($commands.ContainsKey("$path $each")) { $path = "$path $each" }
  }
  if ($word -like '--*=*') {
    $before, $word = $word -split '=', 2
    $ahead = "$before="
  }
  if ($values.ContainsKey("$path $before")) { $offered = $values["$path $before"] }
  elseif ($files -contains $path -and $word -notlike '-*') { return }
  else { $offered = $commands[$path] }
  $offered -split ' ' | Where-Object { $_ -and $_ -like "$word*" } | ForEach-Object { "$ahead$_" }
}
)";
}

}  // namespace

std::string CompletionScript(CLI::App& app, const std::string& shell) {
  Words words;
  Collect(app, "", {}, words);
  if (shell == "powershell") return PowerShell(app.get_name(), words);
  // zsh runs what is made for bash; a variable named "path" would be its own.
  return (shell == "zsh" ? "autoload -U +X bashcompinit && bashcompinit\n" : "") + Bash(app.get_name(), words);
}

}  // namespace tvkctl

#include "apps/manual/Completions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

namespace twintrue::manual {
namespace {

// A word that a shell takes as it stands.
std::string quoted(std::string_view text) {
  std::string out = "'";
  for (const char c : text) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

// The first sentence or so of a description: a line of a list.
std::string brief(const std::string& description) {
  const std::size_t end = description.find_first_of(":;.\n");
  return description.substr(0, end);
}

std::string options_of(const CommandPage& page) {
  std::vector<std::string> names;
  for (const OptionPage& option : page.options) {
    if (!option.positional) names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return fmt::format("{}", fmt::join(names, " "));
}

// Words that the first positional argument takes.
std::vector<std::string> positional_choices(const CommandPage& page) {
  for (const OptionPage& option : page.options) {
    if (option.positional) return option.choices;
  }
  return {};
}

// Patterns of a case that tells commands: "twintrue inspect"|"twintrue inspect lens"|...
std::string known_commands(const std::vector<CommandPage>& pages, const char* separator) {
  std::vector<std::string> names;
  for (const CommandPage& page : pages) {
    if (page.words.size() > 1) names.push_back(quoted(page.joined(" ")));
  }
  return fmt::format("{}", fmt::join(names, separator));
}

// bash: after an option that takes a value its words, or files.
std::string bash_values(const CommandPage& page) {
  std::string text;
  for (const OptionPage& option : page.options) {
    if (option.positional || option.value.empty()) continue;
    std::vector<std::string> patterns;
    for (const std::string& name : option.names) patterns.push_back(quoted(page.joined(" ") + " " + name));
    text += fmt::format("    {}) words={} free={} ;;\n", fmt::join(patterns, "|"),
                        quoted(fmt::format("{}", fmt::join(option.choices, " "))),
                        option.choices.empty() ? 1 : 0);
  }
  return text;
}

std::string bash_words(const CommandPage& page) {
  const std::vector<std::string> choices =
      page.subcommands.empty() ? positional_choices(page) : page.subcommands;
  return fmt::format("    {}) options={} words={} free={} ;;\n", quoted(page.joined(" ")),
                     quoted(options_of(page)), quoted(fmt::format("{}", fmt::join(choices, " "))),
                     choices.empty() ? 1 : 0);
}

constexpr const char* kBashHead = R"(# Completion of twintrue for bash.
_twintrue() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local command=twintrue options= words= free= at
  for ((at = 1; at < COMP_CWORD; at++)); do
    case "$command ${COMP_WORDS[at]}" in
)";
constexpr const char* kBashTail = R"(  if [[ -z $free ]]; then
    case $command in
)";
constexpr const char* kBashEnd = R"(    esac
    [[ $current == -* ]] && words=$options && free=0
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  # Names of files, as bash completes them by itself.
  [[ $free == 1 ]] && compopt -o default 2>/dev/null
  return 0
}
complete -F _twintrue twintrue
)";

// zsh: an option as _arguments wants it.
std::string zsh_option(const OptionPage& option) {
  std::string description;
  for (const char c : brief(option.description)) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') description += '\\';
    description += c;
  }
  std::string action;
  if (!option.value.empty()) {
    const std::string values =
        option.choices.empty() ? "_files" : fmt::format("({})", fmt::join(option.choices, " "));
    action = fmt::format(":{}:{}", option.value, values);
  }
  if (option.positional) return "    " + quoted(fmt::format("{}{}", option.several ? "*" : "", action));
  const std::string others = fmt::format("({})", fmt::join(option.names, " "));
  std::vector<std::string> specs;
  for (const std::string& name : option.names) {
    specs.push_back("    " + quoted(fmt::format("{}{}[{}]{}", others, name, description, action)));
  }
  return fmt::format("{}", fmt::join(specs, " \\\n"));
}

std::string zsh_function(const CommandPage& page, const std::vector<CommandPage>& pages) {
  std::string text = fmt::format("_{}() {{\n", page.joined("_"));
  std::vector<std::string> specs;
  for (const OptionPage& option : page.options) specs.push_back(zsh_option(option));
  if (page.subcommands.empty()) {
    return text + fmt::format("  _arguments -s \\\n{}\n}}\n", fmt::join(specs, " \\\n"));
  }
  std::string list, cases;
  for (const CommandPage& other : pages) {
    if (other.words.size() != page.words.size() + 1 || !other.joined(" ").starts_with(page.joined(" ") + " "))
      continue;
    list += fmt::format("    {}\n", quoted(other.words.back() + ":" + brief(other.description)));
    cases += fmt::format("      {}) _{} ;;\n", other.words.back(), other.joined("_"));
  }
  text += fmt::format("  local -a commands=(\n{}  )\n  local state\n", list);
  text += fmt::format("  _arguments -C -s \\\n{} \\\n    '1: :->command' '*:: :->rest'\n",
                      fmt::join(specs, " \\\n"));
  text += "  case $state in\n    command) _describe command commands ;;\n    rest) case $words[1] in\n" +
          cases + "    esac ;;\n  esac\n}\n";
  return text;
}

std::string fish_option(const CommandPage& page, const OptionPage& option) {
  std::string line =
      fmt::format("complete -c twintrue -n {}", quoted("__twintrue_at " + quoted(page.joined(" "))));
  for (const std::string& name : option.names) {
    line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  if (!option.value.empty()) line += option.choices.empty() ? " -r -F" : " -x";
  if (!option.choices.empty()) line += " -a " + quoted(fmt::format("{}", fmt::join(option.choices, " ")));
  return fmt::format("{} -d {}\n", line, quoted(brief(option.description)));
}

constexpr const char* kFishHead = R"(# Completion of twintrue for fish.
function __twintrue_at
    set -l command twintrue
    set -l typed (commandline -opc)
    for word in $typed[2..-1]
        switch "$command $word"
            case )";
constexpr const char* kFishTail = R"(
                set command "$command $word"
            case '*'
                break
        end
    end
    test "$command" = "$argv[1]"
end
)";

}  // namespace

std::string bash_completion(const std::vector<CommandPage>& pages) {
  std::string text = kBashHead;
  text += fmt::format("      {}) command+=\" ${{COMP_WORDS[at]}}\" ;;\n      *) break ;;\n    esac\n  done\n",
                      known_commands(pages, "|"));
  text += "  case \"$command $previous\" in\n";
  for (const CommandPage& page : pages) text += bash_values(page);
  text += "  esac\n";
  text += kBashTail;
  for (const CommandPage& page : pages) text += bash_words(page);
  return text + kBashEnd;
}

std::string zsh_completion(const std::vector<CommandPage>& pages) {
  std::string text = "#compdef twintrue\n# Completion of twintrue for zsh.\n";
  for (const CommandPage& page : pages) text += zsh_function(page, pages);
  return text + "_twintrue \"$@\"\n";
}

std::string fish_completion(const std::vector<CommandPage>& pages) {
  std::string text = kFishHead + known_commands(pages, " ") + kFishTail;
  for (const CommandPage& page : pages) {
    const std::string at = quoted("__twintrue_at " + quoted(page.joined(" ")));
    for (const std::string& command : page.subcommands) {
      text += fmt::format("complete -c twintrue -f -n {} -a {}\n", at, command);
    }
    const std::vector<std::string> choices = positional_choices(page);
    if (!choices.empty()) {
      text += fmt::format("complete -c twintrue -n {} -a {}\n", at,
                          quoted(fmt::format("{}", fmt::join(choices, " "))));
    }
    for (const OptionPage& option : page.options) {
      if (!option.positional) text += fish_option(page, option);
    }
  }
  return text;
}

}  // namespace twintrue::manual

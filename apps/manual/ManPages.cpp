#include "apps/manual/ManPages.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

namespace twintrue::manual {
namespace {

// Text that roff takes for nothing but text. A dash stays the one that is typed.
std::string plain(std::string_view text) {
  std::string out;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else if (c == '`') {
      out += "\\(ga";
    } else {
      out += c;
    }
    line_start = c == '\n';
  }
  return out;
}

std::string bold(std::string_view text) { return fmt::format("\\fB{}\\fR", plain(text)); }
std::string italic(std::string_view text) { return fmt::format("\\fI{}\\fR", plain(text)); }

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

// What stands behind a page's name and a dash: begins with a small letter, without the name once more.
std::string summary_of(std::string text) {
  constexpr std::string_view kName = "TwinTrue: ";
  if (text.starts_with(kName)) text.erase(0, kName.size());
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

std::string synopsis_of(const CommandPage& page) {
  std::string line = bold(page.joined(" "));
  if (!page.subcommands.empty()) return line + " " + italic("COMMAND") + " ...";
  for (const OptionPage& option : page.options) {
    if (option.positional || !option.required) continue;
    line += fmt::format(" {} {}", bold(option.names.back()), italic(option.value));
  }
  line += " [" + italic("OPTIONS") + "]";
  for (const OptionPage& option : page.options) {
    if (!option.positional) continue;
    const std::string name = italic(option.value) + (option.several ? " ..." : "");
    line += option.required ? " " + name : fmt::format(" [{}]", name);
  }
  return line;
}

std::string body_of(const OptionPage& option) {
  std::string text = plain(option.description);
  if (!text.empty() && !text.ends_with('.')) text += '.';
  const auto add = [&text](const std::string& sentence) {
    text += text.empty() ? sentence : "\n" + sentence;
  };
  if (!option.choices.empty()) {
    std::vector<std::string> words;
    std::transform(option.choices.begin(), option.choices.end(), std::back_inserter(words), bold);
    add(fmt::format("One of {}.", fmt::join(words, ", ")));
  }
  if (!option.range.empty()) add(fmt::format("From {}.", plain(option.range)));
  if (!option.default_value.empty()) add(fmt::format("Default: {}.", bold(option.default_value)));
  if (!option.excludes.empty()) {
    std::vector<std::string> others;
    std::transform(option.excludes.begin(), option.excludes.end(), std::back_inserter(others), bold);
    add(fmt::format("Not together with {}.", fmt::join(others, ", ")));
  }
  if (option.required && !option.positional) add("Required.");
  return text.empty() ? "\\&" : text;
}

std::string tag_of(const OptionPage& option) {
  if (option.positional) return italic(option.value);
  std::vector<std::string> names;
  std::transform(option.names.begin(), option.names.end(), std::back_inserter(names), bold);
  const std::string tag = fmt::format("{}", fmt::join(names, ", "));
  return option.value.empty() ? tag : fmt::format("{} {}", tag, italic(option.value));
}

std::string options_of(const CommandPage& page, bool positional) {
  std::string text;
  for (const OptionPage& option : page.options) {
    if (option.positional != positional) continue;
    text += fmt::format(".TP\n{}\n{}\n", tag_of(option), body_of(option));
  }
  if (text.empty()) return text;
  return (positional ? ".SH ARGUMENTS\n" : ".SH OPTIONS\n") + text;
}

std::string verbatim(const char* section, std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  while (text.starts_with('\n')) text.remove_prefix(1);
  return text.empty() ? "" : fmt::format(".SH {}\n.nf\n{}\n.fi\n", section, plain(text));
}

std::string footer_of(const CommandPage& page) {
  constexpr std::string_view kExitCodes = "Exit codes:";
  const std::string_view footer = page.footer;
  const std::size_t codes = footer.find(kExitCodes);
  if (codes == std::string_view::npos) return verbatim("NOTES", footer);
  return verbatim("NOTES", footer.substr(0, codes)) +
         verbatim("EXIT STATUS", footer.substr(codes + kExitCodes.size()));
}

bool is_child(const CommandPage& page, const CommandPage& parent) {
  return page.words.size() == parent.words.size() + 1 &&
         std::equal(parent.words.begin(), parent.words.end(), page.words.begin());
}

std::string commands_of(const CommandPage& page, const std::vector<CommandPage>& pages) {
  std::string text;
  for (const CommandPage& other : pages) {
    if (!is_child(other, page)) continue;
    text += fmt::format(".TP\n{}(1)\n{}.\n", bold(other.joined("-")), plain(other.description));
  }
  return text.empty() ? text : ".SH COMMANDS\n" + text;
}

std::string see_also(const CommandPage& page, const std::vector<CommandPage>& pages) {
  std::vector<std::string> names;
  for (const CommandPage& other : pages) {
    const bool sibling = other.words.size() == page.words.size() && other.words != page.words;
    const bool parent = is_child(page, other);
    if (parent || (sibling && std::equal(page.words.begin(), page.words.end() - 1, other.words.begin()))) {
      names.push_back(fmt::format("{}(1)", bold(other.joined("-"))));
    }
  }
  return names.empty() ? "" : fmt::format(".SH SEE ALSO\n{}\n", fmt::join(names, ",\n"));
}

}  // namespace

std::string man_page(const CommandPage& page, const std::vector<CommandPage>& pages,
                     const std::string& version) {
  const std::string name = page.joined("-");
  // Neither day nor machine: equal sources give equal pages.
  std::string text =
      fmt::format(".TH {} 1 \"\" \"twintrue {}\" \"TwinTrue\"\n", plain(upper(name)), plain(version));
  text += fmt::format(".SH NAME\n{} \\- {}\n", plain(name), plain(summary_of(page.description)));
  text += fmt::format(".SH SYNOPSIS\n{}\n", synopsis_of(page));
  text += fmt::format(".SH DESCRIPTION\n{}.\n", plain(page.description));
  text += commands_of(page, pages) + options_of(page, true) + options_of(page, false) + footer_of(page) +
          see_also(page, pages);
  return text;
}

}  // namespace twintrue::manual

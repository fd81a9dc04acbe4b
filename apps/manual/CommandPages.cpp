#include "apps/manual/CommandPages.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>

#include "apps/cli/CommandLine.h"
#include "apps/cli/ExitCode.h"

namespace twintrue::manual {
namespace {

std::vector<std::string> split_at_commas(const std::string& text) {
  std::vector<std::string> words;
  std::size_t from = 0;
  for (std::size_t comma = text.find(','); comma != std::string::npos; comma = text.find(',', from)) {
    words.push_back(text.substr(from, comma - from));
    from = comma + 1;
  }
  words.push_back(text.substr(from));
  return words;
}

// The parser keeps name and checks of a value in one text: NAME, NAME:{one,two}, N:INT in [1 - 9].
void read_type(const std::string& type, OptionPage& option) {
  const std::size_t colon = type.find(':');
  option.value = type.substr(0, colon);
  if (colon == std::string::npos) return;
  const std::string check = type.substr(colon + 1);
  if (check.starts_with('{') && check.ends_with('}')) {
    option.choices = split_at_commas(check.substr(1, check.size() - 2));
  } else if (const std::size_t range = check.find('['); range != std::string::npos) {
    option.range = check.substr(range + 1, check.find(']') - range - 1);
    if (const std::size_t dash = option.range.find(" - "); dash != std::string::npos) {
      option.range.replace(dash, 3, " to ");
    }
  }
}

OptionPage page_of(const CLI::Option& parsed) {
  OptionPage option;
  option.positional = parsed.get_positional();
  if (option.positional) {
    option.names = {parsed.get_name(true)};
  } else {
    for (const std::string& name : parsed.get_snames()) option.names.push_back("-" + name);
    for (const std::string& name : parsed.get_lnames()) option.names.push_back("--" + name);
  }
  const bool takes_value = option.positional || parsed.get_items_expected_max() > 0;
  if (takes_value) read_type(parsed.get_type_name(), option);
  if (option.positional) {
    option.value = option.names.front();
  } else if (takes_value && option.value.empty()) {
    option.value = "VALUE";
  }
  option.default_value = parsed.get_default_str();
  option.description = parsed.get_description();
  option.required = parsed.get_required();
  option.several = parsed.get_expected_max() == CLI::detail::expected_max_vector_size;
  for (const CLI::Option* other : parsed.get_excludes()) option.excludes.push_back(other->get_name());
  return option;
}

void add_pages(const CLI::App& app, std::vector<std::string> words, std::vector<CommandPage>& pages) {
  words.push_back(app.get_name());
  CommandPage page;
  page.words = words;
  page.description = app.get_description();
  page.footer = app.get_footer();
  for (const CLI::Option* option : app.get_options()) page.options.push_back(page_of(*option));
  const auto subcommands =
      app.get_subcommands([](const CLI::App* command) { return !command->get_name().empty(); });
  for (const CLI::App* command : subcommands) page.subcommands.push_back(command->get_name());
  pages.push_back(std::move(page));
  for (const CLI::App* command : subcommands) add_pages(*command, words, pages);
}

}  // namespace

std::string CommandPage::joined(const char* separator) const {
  return fmt::format("{}", fmt::join(words, separator));
}

std::vector<CommandPage> command_pages() {
  cli::ExitCode unused{};
  const std::unique_ptr<CLI::App> program = cli::make_command_line(&unused);
  std::vector<CommandPage> pages;
  add_pages(*program, {}, pages);
  return pages;
}

}  // namespace twintrue::manual

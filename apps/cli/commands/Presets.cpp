#include "apps/cli/commands/Presets.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "apps/cli/Preset.h"

namespace twintrue::cli {
namespace {

void list_presets() {
  std::size_t width = 0;
  for (const Preset& preset : presets()) width = std::max(width, preset.name.size());
  for (const Preset& preset : presets()) {
    std::cout << fmt::format("{:<{}}  {}\n", preset.name, width, preset.summary());
  }
}

}  // namespace

void add_presets(CLI::App& program, ExitCode* code) {
  CLI::App* command = program.add_subcommand("presets", "List the built-in parameter files");
  command->require_subcommand(0, 1);
  CLI::App* show =
      command->add_subcommand("show", "Print a built-in parameter file, to start a file of one's own");
  const auto name = std::make_shared<std::string>();
  show->add_option("NAME", *name, "Its name, as `twintrue presets` lists it")
      ->required()
      ->type_name("")
      ->check(CLI::IsMember(preset_names()));
  command->callback([show, name, code] {
    if (show->parsed()) {
      std::cout << find_preset(*name)->text;
    } else {
      list_presets();
    }
    *code = ExitCode::kCalibrated;
  });
}

}  // namespace twintrue::cli

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace twintrue::cli {

// A parameter file that stands in the program: the text of presets/NAME.yaml as it was at build time.
struct Preset {
  std::string name;
  std::string text;

  // What it is for: the first line of the text behind "# NAME: ".
  std::string_view summary() const;
};

// All of them, the default one first.
const std::vector<Preset>& presets();

// Null if there is none of that name.
const Preset* find_preset(std::string_view name);

std::vector<std::string> preset_names();

}  // namespace twintrue::cli

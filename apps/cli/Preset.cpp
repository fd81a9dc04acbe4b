#include "apps/cli/Preset.h"

#include <algorithm>

namespace twintrue::cli {

std::string_view Preset::summary() const {
  std::string_view line = text;
  line = line.substr(0, line.find('\n'));
  const std::string_view::size_type colon = line.find(": ");
  return colon == std::string_view::npos ? std::string_view{} : line.substr(colon + 2);
}

const Preset* find_preset(std::string_view name) {
  const auto& all = presets();
  const auto found = std::find_if(all.begin(), all.end(), [name](const Preset& p) { return p.name == name; });
  return found == all.end() ? nullptr : &*found;
}

std::vector<std::string> preset_names() {
  std::vector<std::string> names;
  for (const Preset& preset : presets()) names.push_back(preset.name);
  return names;
}

}  // namespace twintrue::cli

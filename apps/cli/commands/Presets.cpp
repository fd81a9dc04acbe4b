#include "apps/cli/commands/Presets.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "apps/cli/Preset.h"

namespace twintrue::cli {

std::string list_of_presets() {
  std::size_t width = 0;
  for (const Preset& preset : presets()) width = std::max(width, preset.name.size());
  std::string list;
  for (const Preset& preset : presets()) {
    list += fmt::format("{:<{}}  {}\n", preset.name, width, preset.summary());
  }
  return list;
}

}  // namespace twintrue::cli

#include "apps/cli/RunOptions.h"

#include "apps/cli/Preset.h"

namespace twintrue::cli {

std::unique_ptr<SettingsSource> SettingsChoice::open() const {
  return preset ? std::make_unique<SettingsSource>(*find_preset(*preset))
                : std::make_unique<SettingsSource>(params);
}

void add_input(std::vector<NamedPath>& inputs, const std::string& name,
               const std::optional<std::string>& path) {
  if (path && path->find('\n') == std::string::npos) inputs.push_back({name, *path});
}

}  // namespace twintrue::cli

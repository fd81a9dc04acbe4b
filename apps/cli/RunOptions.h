#pragma once

// What the person asks of every command that computes.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/OutputFile.h"
#include "apps/cli/SettingsSource.h"

namespace twintrue::cli {

// Which settings to take: a file or its text, a preset, or, with neither, the default preset.
struct SettingsChoice {
  std::optional<std::string> params;
  std::optional<std::string> preset;  // one of preset_names()

  // Throws Failure (input unreadable).
  std::unique_ptr<SettingsSource> open() const;
};

// Adds a path to the inputs that no output may replace, if it can be one: a text of several lines is none.
void add_input(std::vector<NamedPath>& inputs, const std::string& name,
               const std::optional<std::string>& path);

}  // namespace twintrue::cli

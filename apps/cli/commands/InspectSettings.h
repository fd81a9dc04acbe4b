#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace twintrue::cli {

// Either a source, which is a parameter file or its text, or a preset.
struct SettingsArguments {
  std::optional<std::string> source;
  std::optional<std::string> preset;
  std::int32_t width = 0;  // of a half of the frame
  std::int32_t height = 0;
  std::int32_t frame_width = 0;
  std::optional<std::string> out;
};

// `inspect settings`: the effective values of all sections, as JSON.
void inspect_settings(const SettingsArguments& arguments);

// `inspect pattern`: the test pattern that the settings draw, as JSON.
void inspect_pattern(const SettingsArguments& arguments);

}  // namespace twintrue::cli

#pragma once

// Settings that the library answers by ending the process, kept away from targets that run it.

#include <cstdint>
#include <string>

#include "support/SmallSettings.h"

namespace fuzzing {

using testing_support::small_settings;

// The text with lines behind it that give those keys legal values which would end the process.
std::string legal_settings(const std::string& text);

// Whether no key of the file would end the process. A file that doesn't parse is legal: it is refused.
bool settings_are_legal(const std::string& path);

// Whether the search of a frame of that width is small enough for many executions a second.
bool search_is_small(const std::string& path, std::int32_t frame_width);

}  // namespace fuzzing

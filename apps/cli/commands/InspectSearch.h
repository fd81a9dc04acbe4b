#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "apps/cli/commands/InspectRun.h"

namespace twintrue::cli {

// The frame, or matches of it with the number of cells.
struct SearchArguments : RunArguments {
  std::optional<std::string> matches;
  std::int32_t cells = 0;
  bool ignore_thresholds = false;
};

// `inspect search`: filtering and search, retry by retry and level by level, as JSON.
void inspect_search(const SearchArguments& arguments);

}  // namespace twintrue::cli

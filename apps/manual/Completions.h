#pragma once

// What shells complete: commands, options, and the words that an option takes; where any word may stand, the
// names of files.

#include <string>
#include <vector>

#include "apps/manual/CommandPages.h"

namespace twintrue::manual {

std::string bash_completion(const std::vector<CommandPage>& pages);
std::string zsh_completion(const std::vector<CommandPage>& pages);
std::string fish_completion(const std::vector<CommandPage>& pages);

}  // namespace twintrue::manual

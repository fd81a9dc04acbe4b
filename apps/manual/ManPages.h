#pragma once

#include <string>
#include <vector>

#include "apps/manual/CommandPages.h"

namespace twintrue::manual {

// The manual page of a command as roff, for `man`. `pages` are all commands, for references to them.
std::string man_page(const CommandPage& page, const std::vector<CommandPage>& pages,
                     const std::string& version);

}  // namespace twintrue::manual

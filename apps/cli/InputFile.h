#pragma once

#include <string>

#include "apps/cli/OutputFile.h"

namespace twintrue::cli {

// Throws Failure (input unreadable) unless a file of that name can be opened and holds something.
void require_readable_file(const NamedPath& input);

// The whole file as bytes. Throws Failure (input unreadable); `largest` in bytes bounds what is taken.
std::string read_text_file(const NamedPath& input, std::size_t largest);

}  // namespace twintrue::cli

#pragma once

// What the subcommands of `inspect` share: where their documents go, and how they take numbers.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/cli/OutputFile.h"

namespace twintrue::cli {

// Where a document goes: standard output, or a file that is written whole or not at all.
class DocumentTarget {
 public:
  // `path`: as given with -o. `inputs` are never overwritten. Throws Failure (usage) before any work is done.
  DocumentTarget(const std::optional<std::string>& path, const std::vector<NamedPath>& inputs);

  // Throws Failure (other).
  void write(const std::string& document);

 private:
  std::unique_ptr<OutputFile> file_;
};

// The number that the whole text is: decimal, "inf" or "nan". Throws Failure (usage) naming the argument.
double parse_number(const std::string& argument, std::string_view text);

}  // namespace twintrue::cli

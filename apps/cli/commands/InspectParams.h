#pragma once

#include <optional>
#include <string>

namespace twintrue::cli {

struct ParamsArguments {
  std::string source;  // a parameter file, or its text
  std::optional<std::string> out;
};

// `inspect params`: the tree of a parameter file, as JSON.
void inspect_params(const ParamsArguments& arguments);

}  // namespace twintrue::cli

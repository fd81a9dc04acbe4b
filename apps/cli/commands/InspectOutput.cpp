#include "apps/cli/commands/InspectOutput.h"

#include <fmt/format.h>

#include <charconv>
#include <iostream>
#include <system_error>

#include "apps/cli/Problem.h"

namespace twintrue::cli {

DocumentTarget::DocumentTarget(const std::optional<std::string>& path, const std::vector<NamedPath>& inputs) {
  if (path) file_ = std::make_unique<OutputFile>(NamedPath{"-o", *path}, inputs);
}

void DocumentTarget::write(const std::string& document) {
  if (!file_) {
    std::cout << document;
    return;
  }
  file_->write(document);
  file_->commit();
}

double parse_number(const std::string& argument, std::string_view text) {
  std::string_view digits = text;
  if (digits.substr(0, 1) == "+" && digits.substr(1, 1) != "-") digits.remove_prefix(1);
  double value = 0.0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error == std::errc{} && end == digits.data() + digits.size()) return value;
  throw Failure(ExitCode::kUsage,
                Problem{argument, fmt::format("`{}`", text), "a decimal number that a double can hold",
                        "write it with a point, as in 0.25 or -3e-4"});
}

}  // namespace twintrue::cli

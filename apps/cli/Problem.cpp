#include "apps/cli/Problem.h"

#include <string_view>
#include <utility>

namespace twintrue::cli {
namespace {

void add_field(std::string& out, std::string_view label, std::string_view value) {
  constexpr std::size_t kColumn = 12;
  if (value.empty()) return;
  std::string lead = "  " + std::string(label);
  lead.resize(kColumn, ' ');
  while (!value.empty()) {
    const std::size_t end = value.find('\n');
    out += lead;
    out += value.substr(0, end);
    out += '\n';
    if (end == std::string_view::npos) break;
    value.remove_prefix(end + 1);
    lead.assign(kColumn, ' ');
  }
}

}  // namespace

std::string format_problem(const Problem& problem) {
  std::string out = problem.where + "\n";
  add_field(out, "found", problem.found);
  add_field(out, "expected", problem.expected);
  add_field(out, "to do", problem.remedy);
  return out;
}

Failure::Failure(ExitCode code, Problem problem) : Failure(code, std::vector<Problem>{std::move(problem)}) {}

Failure::Failure(ExitCode code, std::vector<Problem> problems) : code_(code), problems_(std::move(problems)) {
  for (const Problem& problem : problems_) text_ += format_problem(problem);
}

}  // namespace twintrue::cli

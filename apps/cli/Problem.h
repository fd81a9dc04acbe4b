#pragma once

// Errors that a person meets. Each says where, what was found, what was expected and what to do.

#include <exception>
#include <string>
#include <vector>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

struct Problem {
  std::string where;     // file, with line or key if known
  std::string found;     // may have several lines
  std::string expected;  // empty: not printed
  std::string remedy;
};

// One problem as text of a headline and indented lines, newline at the end.
std::string format_problem(const Problem& problem);

// Ends a command with an exit code and at least one problem.
class Failure : public std::exception {
 public:
  Failure(ExitCode code, Problem problem);
  Failure(ExitCode code, std::vector<Problem> problems);

  ExitCode code() const { return code_; }
  const std::vector<Problem>& problems() const { return problems_; }
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  ExitCode code_;
  std::vector<Problem> problems_;
  std::string text_;
};

}  // namespace twintrue::cli

#pragma once

// Runs the program as a process and keeps what it leaves.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace cli_test {

struct Outcome {
  int exit_code = -1;  // 128 + the signal's number if one ended it
  std::string out;
  std::string error;
};

inline Outcome run_program(const std::vector<std::string>& arguments) {
  const testing_support::TempDir dir;
  const std::string out = dir.file("out");
  const std::string error = dir.file("error");
  std::vector<char*> argv{const_cast<char*>(TWINTRUE_PROGRAM)};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    constexpr int kMode = 0600;
    const int out_descriptor = open(out.c_str(), O_WRONLY | O_CREAT, kMode);
    const int error_descriptor = open(error.c_str(), O_WRONLY | O_CREAT, kMode);
    dup2(out_descriptor, STDOUT_FILENO);
    dup2(error_descriptor, STDERR_FILENO);
    execv(TWINTRUE_PROGRAM, argv.data());
    _exit(127);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) throw std::runtime_error("waitpid failed");
  Outcome outcome;
  outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.out = testing_support::read_file(out);
  outcome.error = testing_support::read_file(error);
  return outcome;
}

// Names of all that stands in a folder, in order.
inline std::vector<std::string> names_in(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace cli_test

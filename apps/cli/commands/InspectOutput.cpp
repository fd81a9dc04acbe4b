#include "apps/cli/commands/InspectOutput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <iostream>
#include <system_error>

#include "apps/cli/Problem.h"

namespace twintrue::cli {

MessagesToErrors::MessagesToErrors() {
  std::cout.flush();
  // Unbuffered from here on, so that messages keep their order with those of standard error.
  std::fflush(stdout);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (saved_ < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    const int error = errno;
    if (saved_ >= 0) close(saved_);
    throw std::system_error(error, std::generic_category(), "redirecting standard output");
  }
}

MessagesToErrors::~MessagesToErrors() {
  std::cout.flush();
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
}

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

void add_input(std::vector<NamedPath>& inputs, const std::string& name,
               const std::optional<std::string>& path) {
  if (path && path->find('\n') == std::string::npos) inputs.push_back({name, *path});
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

CLI::App* add_inspection(CLI::App& inspect, ExitCode* code, const std::string& name,
                         const std::string& description, const std::function<void()>& body) {
  CLI::App* command = inspect.add_subcommand(name, description);
  command->callback([code, body] {
    body();
    *code = ExitCode::kCalibrated;
  });
  return command;
}

void add_document_option(CLI::App& command, std::optional<std::string>& path) {
  command.add_option("-o,--out", path, "Write the document to this file (default: standard output)")
      ->type_name("FILE");
}

}  // namespace twintrue::cli

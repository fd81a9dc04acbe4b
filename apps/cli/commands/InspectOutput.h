#pragma once

// What all subcommands of `inspect` share: where their documents and the library's messages go, and how they
// take numbers.

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "apps/cli/OutputFile.h"

namespace twintrue::cli {

// While the object lives, what the process writes to standard output goes to standard error, byte for byte
// and in order with what goes there anyway. Make one at a time, from one thread. Throws std::system_error.
class MessagesToErrors {
 public:
  MessagesToErrors();
  MessagesToErrors(const MessagesToErrors&) = delete;
  MessagesToErrors& operator=(const MessagesToErrors&) = delete;
  ~MessagesToErrors();

 private:
  int saved_ = -1;
};

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

// A path as an input that outputs must spare, if it can be one: a text of several lines is none.
void add_input(std::vector<NamedPath>& inputs, const std::string& name,
               const std::optional<std::string>& path);

// The number that the whole text is: decimal, "inf" or "nan". Throws Failure (usage) naming the argument.
double parse_number(const std::string& argument, std::string_view text);

// Adds a subcommand that runs `body` and ends the program with 0 if that returns.
CLI::App* add_inspection(CLI::App& inspect, ExitCode* code, const std::string& name,
                         const std::string& description, const std::function<void()>& body);

// Adds -o/--out.
void add_document_option(CLI::App& command, std::optional<std::string>& path);

}  // namespace twintrue::cli

#pragma once

// Runs of `twintrue inspect` and readers of what it writes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "apps/cli/CommandLine.h"
#include "cli/ProgramRun.h"
#include "support/TempDir.h"

namespace inspect_test {

using Json = nlohmann::json;

// Standard output or standard error of this process, kept in a file for as long as the object lives.
class CapturedStream {
 public:
  CapturedStream(int descriptor, const std::string& path) : descriptor_(descriptor), saved_(dup(descriptor)) {
    constexpr int kMode = 0600;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT, kMode);
    dup2(file, descriptor);
    close(file);
  }
  CapturedStream(const CapturedStream&) = delete;
  CapturedStream& operator=(const CapturedStream&) = delete;
  ~CapturedStream() {
    std::cout.flush();
    std::fflush(stdout);
    dup2(saved_, descriptor_);
    close(saved_);
  }

 private:
  int descriptor_;
  int saved_;
};

// Runs the command in this process: the program takes longer to start than most of the commands to run.
inline cli_test::Outcome run_inspect(std::vector<std::string> arguments) {
  const testing_support::TempDir dir;
  arguments.insert(arguments.begin(), "inspect");
  cli_test::Outcome outcome;
  std::cout.flush();
  std::fflush(stdout);
  {
    const CapturedStream out(STDOUT_FILENO, dir.file("out"));
    const CapturedStream error(STDERR_FILENO, dir.file("error"));
    outcome.exit_code = static_cast<int>(twintrue::cli::run_command_line(std::move(arguments)));
  }
  outcome.out = testing_support::read_file(dir.file("out"));
  outcome.error = testing_support::read_file(dir.file("error"));
  return outcome;
}

// The document of a run that is to succeed.
inline std::string inspect_text(const std::vector<std::string>& arguments) {
  const cli_test::Outcome outcome = run_inspect(arguments);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.error;
  return outcome.out;
}

inline Json inspect_json(const std::vector<std::string>& arguments) {
  const std::string text = inspect_text(arguments);
  const Json json = Json::parse(text, nullptr, false);
  EXPECT_FALSE(json.is_discarded()) << text;
  return json;
}

inline std::vector<double> numbers(const Json& array) { return array.get<std::vector<double>>(); }

inline std::vector<std::string> split(const std::string& line, char separator) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, separator);) fields.push_back(field);
  return fields;
}

// Keys, each with its value behind it, blanks between all of them.
inline std::vector<std::pair<std::string, std::string>> pairs_of(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::istringstream stream(text);
  for (std::string key, value; stream >> key >> value;) pairs.emplace_back(key, value);
  return pairs;
}

// A CSV document with its first line of `key=value` pairs.
struct Csv {
  std::map<std::string, int> facts;
  std::string header;
  std::vector<std::map<std::string, std::string>> rows;
};

inline Csv parse_csv(const std::string& text) {
  Csv csv;
  std::istringstream stream(text);
  std::string line;
  std::getline(stream, line);
  EXPECT_EQ(line.substr(0, 2), "# ");
  for (const std::string& fact : split(line.substr(2), ' ')) {
    const std::vector<std::string> pair = split(fact, '=');
    csv.facts[pair.at(0)] = std::stoi(pair.at(1));
  }
  std::getline(stream, csv.header);
  const std::vector<std::string> names = split(csv.header, ',');
  while (std::getline(stream, line)) {
    const std::vector<std::string> fields = split(line, ',');
    EXPECT_EQ(fields.size(), names.size()) << line;
    auto& row = csv.rows.emplace_back();
    for (std::size_t i = 0; i < std::min(names.size(), fields.size()); ++i) row[names[i]] = fields[i];
  }
  return csv;
}

}  // namespace inspect_test

#pragma once

// What the program's commands are called and take, as its argument parser knows it: the one source of manual
// pages and completions.

#include <string>
#include <vector>

namespace twintrue::manual {

struct OptionPage {
  std::vector<std::string> names;    // with their dashes; of a positional argument its name alone
  std::string value;                 // what it takes, such as LENS; empty: nothing
  std::vector<std::string> choices;  // words that it takes; empty: any
  std::string range;                 // of a number, in words, or empty
  std::string default_value;         // or empty
  std::string description;
  bool positional = false;
  bool required = false;
  bool several = false;               // takes any number of values
  std::vector<std::string> excludes;  // options that it can't stand beside
};

struct CommandPage {
  std::vector<std::string> words;  // twintrue, inspect, lens
  std::string description;
  std::string footer;
  std::vector<OptionPage> options;       // in their order, positional ones too
  std::vector<std::string> subcommands;  // their last words

  std::string joined(const char* separator) const;
};

// All commands, each before its subcommands; the first is the program itself.
std::vector<CommandPage> command_pages();

}  // namespace twintrue::manual

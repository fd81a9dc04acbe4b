#pragma once

// What a run was made of, so that it can be told and repeated.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace twintrue::cli {

struct InputFact {
  std::string what;  // frame, lens file, parameter file
  std::string path;
  std::int64_t bytes = -1;  // -1: it could not be read again
  std::string sha256;       // in hexadecimal, or empty
};

// A file as it is now. Never throws for what the file is.
InputFact fact_of_file(const std::string& what, const std::string& path);
// A text that was given on the command line.
InputFact fact_of_text(const std::string& what, std::string_view text);

// A key of settings that is not what a preset says.
struct KeyDifference {
  std::string key;   // calib.right3.tilt.div
  std::string here;  // empty: not stated
  std::string there;
};

// The preset that has the fewest differences, the default one of several, and these.
struct NearestPreset {
  std::string name;
  std::vector<KeyDifference> differences;
};

// `settings`: a parameter file's path or text that has been read before.
NearestPreset nearest_preset(const std::string& settings);

// A word for a POSIX shell, and for bash where it holds what can't be printed.
std::string shell_quoted(std::string_view word);

struct RunInputs {
  std::vector<InputFact> files;
  NearestPreset preset;
  std::vector<std::string> command;  // words of the command line
};

}  // namespace twintrue::cli

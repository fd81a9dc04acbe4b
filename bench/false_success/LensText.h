#pragma once

// Lens files as text, changed key by key.

#include <string>

namespace twintrue::false_success {

// All throw std::runtime_error.

std::string read_text(const std::string& path);

bool is_format_1(const std::string& lens);  // or else 2
double value_of(const std::string& lens, const std::string& key);
std::string with(std::string lens, const std::string& key, double value);
std::string plus(const std::string& lens, const std::string& key, double amount);
std::string times(const std::string& lens, const std::string& key, double factor);

// Degrees added to the turn of an eye, "right" or "left".
std::string with_turn(std::string lens, const std::string& eye, double pan, double tilt, double roll);
// Pixels added to its offset, to the right and upward.
std::string with_offset(std::string lens, const std::string& eye, double x, double y);

// For frames that many times wider.
std::string of_width(std::string lens, double factor);
// With circles that many times larger.
std::string of_scale(const std::string& lens, double factor);

// Format 1 said in the words of format 2, and the other way round, with the same numbers for the curve.
std::string in_other_format(const std::string& lens);

}  // namespace twintrue::false_success

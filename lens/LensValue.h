#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lens/LensLanguage.h"
#include "lens/LensScanner.h"

namespace twintrue {

// What an expression gives. The parts stand side by side: what comes from an item is an integer, a float and
// a string at once, and an operator changes the parts that it names alone.
struct ini_value {
  std::int32_t type = kIniNone;
  std::int64_t integer = 0;
  double real = 0.0;
  std::optional<std::string> text;
};

bool is_number(const ini_value& value);
bool both_are(std::int32_t type, const ini_value& a, const ini_value& b);

// Whether a condition of that value takes the first branch: a number other than zero, a string with text.
bool is_true(const ini_value& value);

// A number as a double.
double as_double(const ini_value& number);

// What int() makes of a value.
std::int64_t as_integer(const ini_value& value);

// A value as text, floats with that many digits behind the point.
std::string value_text(const ini_value& value, int digits);

// Two's complement with wrap-around, of all operators that take two integers and give one. A divisor is not
// zero; the most negative integer divided by -1 gives itself.
std::int64_t integer_arithmetic(IniTokenKind op, std::int64_t a, std::int64_t b);

// + - * / of two floats.
double float_arithmetic(IniTokenKind op, double a, double b);

// A comparison. A NaN is neither less nor greater than anything, so == holds for it.
bool compare(IniTokenKind op, std::int64_t a, std::int64_t b);
bool compare(IniTokenKind op, double a, double b);

// The value of an integer literal, wrapped to 64 bits.
std::int64_t literal_value(std::string_view text);

}  // namespace twintrue

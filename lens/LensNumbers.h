#pragma once

// Numbers to text and back as the C library does it in the classic locale, whatever locale the host program
// has set: a lens file with commas for points would be another file.

#include <cstdint>
#include <string>

namespace twintrue {

// The number at the start of the text, 0 if there is none: as atof does, "inf", "nan" and hexadecimal
// included.
double text_to_double(const std::string& text);

// As atoll does; what doesn't fit is clamped.
std::int64_t text_to_int64(const std::string& text);

// As printf does with "%.<digits>f".
std::string double_to_text(double value, int digits);

// isspace, isalpha and isdigit of the classic locale, for any byte.
bool is_space(char c);
bool is_alpha(char c);
bool is_digit(char c);

}  // namespace twintrue

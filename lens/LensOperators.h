#pragma once

// The operators and functions of the language, with the messages of those that can't be applied. In messages
// stands `line`, that of the token where the evaluation has got to.

#include <cstdint>

#include "lens/LensScanner.h"
#include "lens/LensValue.h"

namespace twintrue {

// Levels of the binary operators, from the loosest, 1, to * / %; 0 for other tokens.
inline constexpr int kTightestLevel = 10;
int binary_level(IniTokenKind kind);

// Puts the result of a binary operator into `left`. Returns false, leaves it and says so if the types don't
// fit.
bool combine(const ini_token& op, ini_value& left, const ini_value& right, std::int32_t line);

// + - ~ ! in front of an operand.
void apply_unary(const ini_token& op, ini_value& value, std::int32_t line);

// int, hex, bin, str or print of its argument.
void apply_function(IniTokenKind function, ini_value& value, std::int32_t line);

}  // namespace twintrue

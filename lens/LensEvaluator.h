#pragma once

#include "lens/LensLanguage.h"
#include "lens/LensScanner.h"

namespace twintrue {

// Executes the statements of a token list on the store, from its current section on. Messages go to standard
// output as they arise.
//
// Returns false if the statements made more text than a load may; those up to there are executed. Nested
// deeper than 1000 levels (parentheses, calls, branches of ?:), an expression reads nothing.
// Throws std::bad_alloc.
bool evaluate_tokens(ini_store& store, const ini_token_list& tokens);

}  // namespace twintrue

#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace twintrue {

enum class IniTokenKind : std::int32_t {
  kEnd = 0,
  kIdentifier = 1,
  kInteger = 2,
  kFloat = 3,
  kString = 4,
  kPlus = 5,
  kMinus = 6,
  kMultiply = 7,
  kDivide = 8,
  kModulo = 9,
  kBitAnd = 10,
  kBitOr = 11,
  kBitXor = 12,
  kLogicalAnd = 13,
  kLogicalOr = 14,
  kComplement = 15,
  kPower = 16,  // scanned, but no operator of the language
  kInt = 17,
  kHex = 18,
  kBin = 19,
  kNot = 20,
  kEqual = 21,
  kNotEqual = 22,
  kArrow = 23,
  kLess = 24,
  kLessEqual = 25,
  kGreater = 26,
  kGreaterEqual = 27,
  kQuestion = 28,
  kSemicolon = 29,
  kColon = 30,
  kAssign = 31,
  kPrint = 32,
  kShiftLeft = 33,
  kShiftRight = 34,
  kOpenBracket = 35,
  kCloseBracket = 36,
  kOpenParen = 37,
  kCloseParen = 38,
  kDot = 39,
  kStr = 40,
};

// A token. `text` is its source bytes; of a string, the bytes that it stands for, without the quotes.
struct ini_token {
  IniTokenKind kind = IniTokenKind::kEnd;
  std::int32_t line = 0;  // where it starts, as the scanner counts lines
  std::string text;
};

// Tokens in order of appearance. The last one is a sentinel of kind kEnd with line 0 and empty text.
using ini_token_list = std::deque<ini_token>;

// Splits the text, which ends at its first NUL, into tokens. A byte that begins no token prints
// "ERROR: Unknown charactor in <line>.\n" on standard output and ends the list there.
ini_token_list scan_tokens(std::string_view text);

}  // namespace twintrue

#include "lens/LensOperators.h"

#include <string_view>

#include "lens/LensNumbers.h"
#include "lens/LensReport.h"

namespace twintrue {
namespace {

using Kind = IniTokenKind;

constexpr int kDigitsShown = 10;  // behind the point

void type_error(const ini_token& op, std::int32_t line) {
  report("ERROR: Invalid type of operand on operator '{}' in {}.\n", op.text, line);
}

bool arithmetic(Kind op, ini_value& left, const ini_value& right, std::int32_t line) {
  if (!is_number(left) || !is_number(right)) return false;
  const bool divides = op == Kind::kDivide || op == Kind::kModulo;
  if (both_are(kIniInteger, left, right)) {
    if (divides && right.integer == 0) {
      report("ERROR: Divided by zero in {}.\n", line);
    } else {
      left.integer = integer_arithmetic(op, left.integer, right.integer);
    }
    return true;
  }
  const double a = as_double(left);
  const double b = as_double(right);
  left.type = kIniFloat;
  if (op == Kind::kModulo) {
    report("ERROR: Invalid type of operand on operator '%' in {}.\n", line);
    left.real = 0.0;
  } else if (divides && b == 0.0) {
    report("ERROR: Divided by zero in {}.\n", line);
  } else {
    left.real = float_arithmetic(op, a, b);
  }
  return true;
}

// As combine(), without a word about types.
bool combined(Kind op, ini_value& left, const ini_value& right, std::int32_t line) {
  switch (op) {
    case Kind::kPlus:
    case Kind::kMinus:
      if (both_are(kIniString, left, right)) {
        *left.text += *right.text;
        return true;
      }
      return arithmetic(op, left, right, line);
    case Kind::kMultiply:
    case Kind::kDivide:
    case Kind::kModulo:
      return arithmetic(op, left, right, line);
    case Kind::kEqual:
    case Kind::kNotEqual:
    case Kind::kLess:
    case Kind::kLessEqual:
    case Kind::kGreater:
    case Kind::kGreaterEqual:
      if (!is_number(left) || !is_number(right)) return false;
      left.integer = both_are(kIniInteger, left, right) ? compare(op, left.integer, right.integer)
                                                        : compare(op, as_double(left), as_double(right));
      left.type = kIniInteger;
      return true;
    default:
      if (!both_are(kIniInteger, left, right)) return false;
      left.integer = integer_arithmetic(op, left.integer, right.integer);
      return true;
  }
}

void print(const ini_value& value) {
  if (value.type == kIniString) {
    report("{}", *value.text);
  } else {
    report("{}\n", value.type == kIniFloat ? double_to_text(value.real, kDigitsShown)
                                           : std::to_string(value.integer));
  }
}

void to_digits(ini_value& value, std::string_view function, std::int32_t line) {
  if (value.type == kIniFloat || value.type == kIniString) {
    report("ERROR: Illegal parameter, \"{}( {} )\" in {}.\n", function,
           value.type == kIniFloat ? "FLOAT" : "STRING", line);
    return;
  }
  const auto bits = static_cast<std::uint64_t>(value.integer);
  value.text = function == "hex" ? fmt::format("{:X}", bits) : fmt::format("{:b}", bits);
  value.type = kIniString;
}

}  // namespace

int binary_level(Kind kind) {
  switch (kind) {
    case Kind::kLogicalOr:
      return 1;
    case Kind::kLogicalAnd:
      return 2;
    case Kind::kBitOr:
      return 3;
    case Kind::kBitXor:
      return 4;
    case Kind::kBitAnd:
      return 5;
    case Kind::kEqual:
    case Kind::kNotEqual:
      return 6;
    case Kind::kLess:
    case Kind::kLessEqual:
    case Kind::kGreater:
    case Kind::kGreaterEqual:
      return 7;
    case Kind::kShiftLeft:
    case Kind::kShiftRight:
      return 8;
    case Kind::kPlus:
    case Kind::kMinus:
      return 9;
    case Kind::kMultiply:
    case Kind::kDivide:
    case Kind::kModulo:
      return kTightestLevel;
    default:
      return 0;
  }
}

bool combine(const ini_token& op, ini_value& left, const ini_value& right, std::int32_t line) {
  if (combined(op.kind, left, right, line)) return true;
  type_error(op, line);
  return false;
}

void apply_unary(const ini_token& op, ini_value& value, std::int32_t line) {
  if (value.type == kIniString || (value.type == kIniFloat && op.kind == Kind::kComplement)) {
    type_error(op, line);
  } else if (op.kind == Kind::kMinus) {
    value.integer = integer_arithmetic(Kind::kMinus, 0, value.integer);
    value.real = -value.real;
  } else if (op.kind == Kind::kComplement) {
    value.integer = ~value.integer;
  } else if (op.kind == Kind::kNot) {
    value.integer = value.integer == 0;
    value.real = value.real == 0.0 ? 1.0 : 0.0;
  }
}

void apply_function(Kind function, ini_value& value, std::int32_t line) {
  switch (function) {
    case Kind::kInt:
      value.integer = as_integer(value);
      value.type = kIniInteger;
      break;
    case Kind::kHex:
      to_digits(value, "hex", line);
      break;
    case Kind::kBin:
      to_digits(value, "bin", line);
      break;
    case Kind::kStr:
      value.text = value_text(value, kDigitsShown);
      value.type = kIniString;
      break;
    default:
      print(value);
      break;
  }
}

}  // namespace twintrue

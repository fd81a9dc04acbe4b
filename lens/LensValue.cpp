#include "lens/LensValue.h"

#include "base/Saturate.h"
#include "lens/LensNumbers.h"

namespace twintrue {
namespace {

using Kind = IniTokenKind;

std::int64_t wrapped(std::uint64_t bits) { return static_cast<std::int64_t>(bits); }

template <typename Number>
bool compare_as(Kind op, Number a, Number b) {
  switch (op) {
    case Kind::kLess:
      return a < b;
    case Kind::kLessEqual:
      return a <= b;
    case Kind::kGreater:
      return a > b;
    case Kind::kGreaterEqual:
      return a >= b;
    case Kind::kEqual:
      return !(a < b) && !(a > b);
    default:
      return a < b || a > b;  // !=
  }
}

}  // namespace

bool is_number(const ini_value& value) { return value.type == kIniInteger || value.type == kIniFloat; }

bool both_are(std::int32_t type, const ini_value& a, const ini_value& b) {
  return a.type == type && b.type == type;
}

double as_double(const ini_value& number) {
  return number.type == kIniInteger ? static_cast<double>(number.integer) : number.real;
}

bool is_true(const ini_value& value) {
  switch (value.type) {
    case kIniInteger:
      return value.integer != 0;
    case kIniFloat:
      return value.real < 0.0 || value.real > 0.0;
    case kIniString:
      return value.text && !value.text->empty();
    default:
      return false;
  }
}

std::int64_t integer_arithmetic(Kind op, std::int64_t a, std::int64_t b) {
  const auto ua = static_cast<std::uint64_t>(a);
  const auto ub = static_cast<std::uint64_t>(b);
  switch (op) {
    case Kind::kPlus:
      return wrapped(ua + ub);
    case Kind::kMinus:
      return wrapped(ua - ub);
    case Kind::kMultiply:
      return wrapped(ua * ub);
    case Kind::kDivide:
      return b == -1 ? wrapped(0 - ua) : a / b;
    case Kind::kModulo:
      return b == -1 ? 0 : a % b;
    case Kind::kShiftLeft:
      return wrapped(ua << (ub & 63));
    case Kind::kShiftRight:
      return a >> (ub & 63);
    case Kind::kBitAnd:
      return a & b;
    case Kind::kBitXor:
      return a ^ b;
    case Kind::kBitOr:
      return a | b;
    case Kind::kLogicalAnd:
      return a != 0 && b != 0;
    default:
      return a != 0 || b != 0;  // ||
  }
}

double float_arithmetic(Kind op, double a, double b) {
  switch (op) {
    case Kind::kPlus:
      return a + b;
    case Kind::kMinus:
      return a - b;
    case Kind::kMultiply:
      return a * b;
    default:
      return a / b;
  }
}

std::int64_t literal_value(std::string_view text) {
  std::uint64_t base = 10;
  if (text.size() > 1 && text[0] == '0') {
    const char prefix = text[1];
    base = prefix == 'x' || prefix == 'X' ? 16 : prefix == 'b' || prefix == 'B' ? 2 : 8;
    text.remove_prefix(base == 8 ? 1 : 2);
  }
  std::uint64_t value = 0;
  for (const char c : text) {
    if (c == '_') continue;
    const int digit = is_digit(c) ? c - '0' : c - 'A' + 10;
    value = value * base + static_cast<std::uint64_t>(digit);
  }
  return wrapped(value);
}

std::int64_t as_integer(const ini_value& value) {
  if (value.type == kIniFloat) return truncate_to_int64(value.real);
  if (value.type == kIniString) return text_to_int64(*value.text);
  return value.integer;
}

std::string value_text(const ini_value& value, int digits) {
  if (value.type == kIniString) return *value.text;
  return value.type == kIniFloat ? double_to_text(value.real, digits) : std::to_string(value.integer);
}

bool compare(Kind op, std::int64_t a, std::int64_t b) { return compare_as(op, a, b); }

bool compare(Kind op, double a, double b) { return compare_as(op, a, b); }

}  // namespace twintrue

#include "lens/LensNumbers.h"

#include <locale.h>
#include <stdlib.h>
#if __has_include(<xlocale.h>)
#include <xlocale.h>
#endif

#include <array>
#include <charconv>
#include <limits>
#include <new>
#include <system_error>

namespace twintrue {
namespace {

class ClassicLocale {
 public:
  ClassicLocale() : locale_(newlocale(LC_ALL_MASK, "C", locale_t{})) {
    if (locale_ == locale_t{}) throw std::bad_alloc();
  }
  ClassicLocale(const ClassicLocale&) = delete;
  ClassicLocale& operator=(const ClassicLocale&) = delete;
  ~ClassicLocale() { freelocale(locale_); }
  locale_t get() const { return locale_; }

 private:
  locale_t locale_;
};

}  // namespace

double text_to_double(const std::string& text) {
  return strtod_l(text.c_str(), nullptr, ClassicLocale().get());
}

std::int64_t text_to_int64(const std::string& text) {
  const char* at = text.c_str();
  while (is_space(*at)) ++at;
  const bool negative = *at == '-';
  if (*at == '-' || *at == '+') ++at;
  if (!is_digit(*at)) return 0;
  std::uint64_t magnitude = 0;
  constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
  const auto parsed = std::from_chars(at, text.c_str() + text.size(), magnitude);
  if (parsed.ec == std::errc::result_out_of_range || magnitude > largest) {
    return negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  }
  const auto value = static_cast<std::int64_t>(magnitude);
  return negative ? -value : value;
}

std::string double_to_text(double value, int digits) {
  // 309 digits before the point at most, the point, the sign.
  std::array<char, 400> buffer;
  const auto printed =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed, digits);
  return std::string(buffer.data(), printed.ptr);
}

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool is_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

}  // namespace twintrue

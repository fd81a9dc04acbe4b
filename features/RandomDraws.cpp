#include "features/RandomDraws.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace fpu {

double draw_uniform_real(std::mt19937_64& engine) {
  constexpr double kTwoTo64 = 18446744073709551616.0;
  return static_cast<double>(engine()) / kTwoTo64;
}

std::int32_t draw_uniform_int(std::mt19937_64& engine, std::int32_t half) {
  const std::uint64_t n = 2 * static_cast<std::uint64_t>(half) + 1;
  if (n == 1) return 0;
  // The outputs above the last whole multiple of n are drawn again, so that all values are equally likely.
  // There are some: n is odd, and so no divisor of 2^64.
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t output = 0;
  do {
    output = engine();
  } while (output / n >= kMax / n);
  return static_cast<std::int32_t>(static_cast<std::int64_t>(output % n) - half);
}

double NormalDraws::operator()(std::mt19937_64& engine) { return standard_draw(engine) * deviation_ + 0.0; }

double NormalDraws::standard_draw(std::mt19937_64& engine) {
  if (has_saved_) {
    has_saved_ = false;
    return saved_;
  }
  double a = 0.0;
  double b = 0.0;
  double s = 0.0;
  do {
    a = 2.0 * draw_uniform_real(engine) - 1.0;
    b = 2.0 * draw_uniform_real(engine) - 1.0;
    s = b * b + a * a;
  } while (!(s < 1.0 && a != 0.0 && b != 0.0));

  double log_s = 0.0;
  if (s > 0.0001) {
    log_s = std::log(s);
  } else {
    // So near the centre the square may lose its digits: scale both up and make up for it in the logarithm.
    constexpr double kTwoLog2 = 1.3862943611198906;
    const int exponent = std::ilogb(std::max(std::fabs(a), std::fabs(b)));
    a = std::scalbn(a, -exponent);
    b = std::scalbn(b, -exponent);
    s = b * b + a * a;
    log_s = std::log(s) + exponent * kTwoLog2;
  }
  const double r = std::sqrt(-2.0 * log_s / s);
  saved_ = r * b;
  has_saved_ = true;
  return r * a;
}

}  // namespace fpu

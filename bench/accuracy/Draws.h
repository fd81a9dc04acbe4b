#pragma once

#include <cmath>
#include <cstdint>
#include <random>

#include "support/PlainLens.h"

namespace twintrue::accuracy {

// Random numbers that come out the same with every standard library.
class Draws {
 public:
  explicit Draws(std::uint64_t seed) : engine_(seed) {}

  // From 0 to below 1.
  double unit() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }
  double between(double low, double high) { return low + (high - low) * unit(); }
  // Evenly in the logarithm.
  double scale_between(double low, double high) { return low * std::pow(high / low, unit()); }
  double normal() { return std::sqrt(-2.0 * std::log(1.0 - unit())) * std::cos(4.0 * kHalfPi * unit()); }

 private:
  std::mt19937_64 engine_;
};

// A point of the field of view, evenly over an equidistant picture, `reach` radians off the axis at most.
inline std::array<double, 3> draw_point(Draws& draws, double reach, double nearest, double farthest,
                                        double* angle, double* distance) {
  *angle = reach * std::sqrt(draws.unit());
  const double round = 4.0 * kHalfPi * draws.unit();
  *distance = draws.scale_between(nearest, farthest);
  return {*distance * std::sin(*angle) * std::cos(round), *distance * std::sin(*angle) * std::sin(round),
          -*distance * std::cos(*angle)};
}

}  // namespace twintrue::accuracy

#pragma once

// Draws of the test pattern. The distributions are our own: those of the standard library differ from one
// library to the next, and the pattern of a seed must be the same everywhere. The engine is the standard's
// 64-bit Mersenne Twister, which is fixed to the bit.

#include <cstdint>
#include <random>

namespace fpu {

// 0 to 1, both included (the largest outputs round up to 2^64).
double draw_uniform_real(std::mt19937_64& engine);

// -half to half, both included; half is 0 or more. Takes no output for half 0.
std::int32_t draw_uniform_int(std::mt19937_64& engine, std::int32_t half);

// Normal numbers of mean 0 by the polar method, which makes two at a time: the second is kept for the next
// draw.
class NormalDraws {
 public:
  explicit NormalDraws(double deviation) : deviation_(deviation) {}
  double operator()(std::mt19937_64& engine);

 private:
  double standard_draw(std::mt19937_64& engine);

  double deviation_;
  double saved_ = 0.0;
  bool has_saved_ = false;
};

}  // namespace fpu

#pragma once

// A tone curve that ends in bytes, as a table. Curves rise with their argument, so a curve is known by the
// arguments at which the byte steps up; a few hundred of them lie between 0 and 2. They are looked for once,
// with the curve itself, so the table gives what the curve gives, for every float.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/InstructionSet.h"

namespace cve {

class ByteCurve {
 public:
  using Formula = unsigned char (*)(float value, std::int32_t mode);

  // Steps of formula(value, mode) from 0 to 2. Between 0 and 2 it must rise by one or stay from a float to
  // the next, modulo 256; elsewhere it may be anything. A curve too steep for the table is still carried out,
  // value by value.
  ByteCurve(Formula formula, std::int32_t mode);

  // The bytes of `count` values. Values outside 0 to 2, and NaNs, take the formula.
  void convert(const float* values, std::size_t count, unsigned char* out,
               twintrue::InstructionSet set) const;

 private:
  Formula formula_;
  std::int32_t mode_;
  // One entry for each stretch of floats with the same upper bits: the byte at its start, and above that, in
  // its lower bits, what to add to a float's lower bits so that they carry into the byte from the step on.
  std::vector<std::uint32_t> stretches_;  // empty: too steep
};

}  // namespace cve

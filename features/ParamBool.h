#pragma once

#include <cstdint>

#include "params/ParamDocument.h"

namespace fpu {

// A switch of the parameter file: 0 or 1. Any other text, or none, leaves *out as it is.
inline void param_get_bool(const twintrue::ParamNode& node, bool* out) {
  constexpr std::int32_t kAbsent = -1;
  std::int32_t value = kAbsent;
  twintrue::param_get_int(node, &value, &kAbsent);
  if (value == 0 || value == 1) *out = value == 1;
}

}  // namespace fpu

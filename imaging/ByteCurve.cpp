#include "imaging/ByteCurve.h"

#include <bit>

#include "imaging/ByteLookup.h"

namespace cve {

ByteCurve::ByteCurve(Formula formula, std::int32_t mode) : formula_(formula), mode_(mode) {
  const auto byte_at = [&](std::uint32_t bits) { return formula(std::bit_cast<float>(bits), mode); };
  constexpr std::uint32_t kNoStep = 0;
  stretches_.resize(kStretches);
  unsigned char at_start = byte_at(0);
  for (std::uint32_t stretch = 0; stretch < kStretches; ++stretch) {
    const std::uint32_t start = stretch == 0 ? 0 : (kFirstStretch + stretch) << kStretchBits;
    const std::uint32_t end = (kFirstStretch + stretch + 1) << kStretchBits;
    const unsigned char at_end = byte_at(end - 1);
    const unsigned rise = static_cast<unsigned char>(at_end - at_start);
    std::uint32_t carry = kNoStep;
    if (rise > 1 || (rise == 1 && stretch == 0)) {
      stretches_.clear();
      return;
    }
    if (rise == 1) {
      std::uint32_t low = start;  // still the first byte
      std::uint32_t high = end - 1;
      while (high - low > 1) {
        const std::uint32_t middle = low + (high - low) / 2;
        (byte_at(middle) == at_start ? low : high) = middle;
      }
      carry = end - high;
    }
    stretches_[stretch] = (std::uint32_t{at_start} << kStretchBits) + carry;
    at_start = byte_at(end);
  }
}

void ByteCurve::convert(const float* values, std::size_t count, unsigned char* out,
                        twintrue::InstructionSet set) const {
  const bool all_known = !stretches_.empty() && byte_lookup(set)(stretches_.data(), values, count, out);
  if (all_known) return;
  for (std::size_t i = 0; i < count; ++i) {
    if (stretches_.empty() || std::bit_cast<std::uint32_t>(values[i]) >= kEndBits) {
      out[i] = formula_(values[i], mode_);
    }
  }
}

}  // namespace cve

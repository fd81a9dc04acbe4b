// The rays of a sweep, which its kernels take unrotated.

#include <limits>

#include "base/VectorMath.h"
#include "search/SweepKernel.h"

namespace twintrue {
namespace {

constexpr double kHalfPi = 1.5707963267948966;

// At most kSweepBlock pixels. Looking up the table stands between two loops that become vectors.
template <std::uint32_t kKind>
TWINTRUE_INLINE void block_rays_of(const RayEye& eye, std::size_t count, const double* __restrict px,
                                   const double* __restrict py, double* __restrict x_out,
                                   double* __restrict y_out, double* __restrict z_out) {
  constexpr double kTiny = std::numeric_limits<double>::min();  // keeps the centre from 0 / 0
  alignas(64) double us[kSweepBlock];
  alignas(64) double vs[kSweepBlock];
  alignas(64) double radii[kSweepBlock];
  alignas(64) double weights[kSweepBlock];  // of the entry before the next
  alignas(64) std::int32_t entries[kSweepBlock];
  const double per_v = 1.0 / eye.magnify_v;
  const double per_h = 1.0 / eye.magnify_h;
  const double last = eye.last;
  for (std::size_t i = 0; i < count; ++i) {
    double u = (px[i] - eye.center_x - eye.offset_x) * eye.unit_per_px;
    double v = -(py[i] - eye.center_y + eye.offset_y) * eye.unit_per_px;
    if constexpr (kKind == 2) {
      u = u * per_v;
      v = v * per_h;
    }
    const double r = __builtin_sqrt(u * u + v * v);
    const double s = r * eye.table_scale;
    const auto entry = static_cast<std::int32_t>(s < last ? s : last);
    us[i] = u;
    vs[i] = v;
    radii[i] = r;
    weights[i] = (static_cast<double>(entry) + 1.0) - s;
    entries[i] = entry;
  }
  alignas(64) double inverses[kSweepBlock];
  const double* const table = eye.table;
  for (std::size_t i = 0; i < count; ++i) {
    const double* const entry = table + entries[i];
    inverses[i] = (1.0 - weights[i]) * entry[1] + weights[i] * entry[0];
  }
  // Read before the loop: what is read where it may not be wanted keeps a loop from becoming vectors.
  const double limit = eye.radius_limit;
  const double shift_x = eye.shift_x;
  const double shift_y = eye.shift_y;
  const double along_x = eye.translate[0];
  const double along_y = eye.translate[1];
  const double along_z = eye.translate[2];
  for (std::size_t i = 0; i < count; ++i) {
    const double f = inverses[i] / (radii[i] + kTiny);
    double u = us[i] * f;
    double v = vs[i] * f;
    if constexpr (kKind == 1) {
      u = u * per_v;
      v = v * per_h;
    }
    const double rho = __builtin_sqrt(u * u + v * v);
    const double towards = 1.0 / (rho + kTiny);
    double sine = 0.0;
    double cosine = 0.0;
    vector_math::sine_cosine(rho * kHalfPi, &sine, &cosine);
    const double x = u * towards * sine + cosine * shift_x + along_x;
    const double y = v * towards * sine + cosine * shift_y + along_y;
    const double z = along_z - cosine;
    const bool seen = !(rho > limit);
    x_out[i] = seen ? x : 0.0;
    y_out[i] = seen ? y : 0.0;
    z_out[i] = seen ? z : 0.0;
  }
}

template <std::uint32_t kKind>
TWINTRUE_INLINE void rays_of(const RayEye& eye, std::size_t count, const double* px, const double* py,
                             const RayArrays& rays) {
  for (std::size_t at = 0; at < count; at += kSweepBlock) {
    const std::size_t rest = count - at;
    block_rays_of<kKind>(eye, rest < kSweepBlock ? rest : kSweepBlock, px + at, py + at, rays.x + at,
                         rays.y + at, rays.z + at);
  }
}

TWINTRUE_INLINE void rays_of_kind(const RayEye& eye, std::size_t count, const double* px, const double* py,
                                  const RayArrays& rays) {
  if (eye.kind == 1) {
    rays_of<1>(eye, count, px, py, rays);
  } else {
    rays_of<2>(eye, count, px, py, rays);
  }
}

void rays_portable(const RayEye& eye, std::size_t count, const double* px, const double* py,
                   const RayArrays& rays) {
  rays_of_kind(eye, count, px, py, rays);
}
TWINTRUE_TARGET_AVX2 void rays_avx2(const RayEye& eye, std::size_t count, const double* px, const double* py,
                                    const RayArrays& rays) {
  rays_of_kind(eye, count, px, py, rays);
}
TWINTRUE_TARGET_AVX512 void rays_avx512(const RayEye& eye, std::size_t count, const double* px,
                                        const double* py, const RayArrays& rays) {
  rays_of_kind(eye, count, px, py, rays);
}

}  // namespace

SweepRaysFn sweep_rays(twintrue::InstructionSet set) {
  return twintrue::for_set<SweepRaysFn>(set, rays_portable, rays_avx2, rays_avx512);
}

}  // namespace twintrue

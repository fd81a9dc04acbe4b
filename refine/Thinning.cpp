#include "refine/Thinning.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "base/ParallelEach.h"
#include "refine/CodedPicture.h"
#include "refine/PatchKernel.h"

namespace twintrue {
namespace {

constexpr std::size_t kBlock = 256;

// Expected variance of the shift across for a noise of one, or infinity. `across`: unit direction in the
// picture.
double promised_variance(const cve::XMat_<std::int16_t>& half, std::int32_t x, std::int32_t y,
                         const Vec2& across) {
  constexpr std::int32_t kStep = 2;
  constexpr std::int32_t kReach = 6;
  std::int64_t xx = 0, xy = 0, yy = 0;
  for (std::int32_t dy = -kReach; dy <= kReach; dy += kStep) {
    const std::int16_t* above = half.row(y + dy - 1) + x;
    const std::int16_t* here = half.row(y + dy) + x;
    const std::int16_t* below = half.row(y + dy + 1) + x;
    for (std::int32_t dx = -kReach; dx <= kReach; dx += kStep) {
      const std::int32_t gx = (here[dx + 1] - here[dx - 1]) / 8;
      const std::int32_t gy = (below[dx] - above[dx]) / 8;
      xx += gx * gx;
      xy += gx * gy;
      yy += gy * gy;
    }
  }
  const double gxx = static_cast<double>(xx), gxy = static_cast<double>(xy), gyy = static_cast<double>(yy);
  const double nx = across[0], ny = across[1];
  const double tt = nx * nx * gxx + 2.0 * nx * ny * gxy + ny * ny * gyy;
  const double ss = ny * ny * gxx - 2.0 * nx * ny * gxy + nx * nx * gyy;
  const double st = -nx * ny * gxx + (nx * nx - ny * ny) * gxy + nx * ny * gyy;
  // Of the shift along little has to be known.
  constexpr double kLittle = 49.0 * 64.0;  // one grey level a pixel
  const double information = tt - st * st / (ss + kLittle);
  return information > kLittle ? 1.0 / information : std::numeric_limits<double>::infinity();
}

}  // namespace

std::vector<RayMatch> thin_matches(const CodedHalves& halves, const PairGeometry& geometry,
                                   const std::vector<RayMatch>& matches, const ThinningSettings& settings) {
  const double width = 2.0 * halves.half_width;
  const double most_across = std::max(settings.across_share * width, 1.5);
  const double cell = std::max(settings.cell_share * width, 1.0);
  const double reach = (kPatchReach + 1.0) / geometry.pixels_per_radian();
  const double rim = settings.rim_degrees * std::numbers::pi / 180.0 + reach;
  const double right_rim = std::cos(geometry.rim(false) - rim);
  const double left_rim = std::cos(geometry.rim(true) - rim);
  std::vector<double> promise(matches.size(), std::numeric_limits<double>::infinity());
  parallel_each((matches.size() + kBlock - 1) / kBlock, [&](std::size_t block) {
    const std::size_t end = std::min(matches.size(), (block + 1) * kBlock);
    for (std::size_t m = block * kBlock; m < end; ++m) {
      const RayMatch& match = matches[m];
      const double xa = static_cast<double>(match.x_a), ya = static_cast<double>(match.y_a);
      const double xb = static_cast<double>(match.x_b), yb = static_cast<double>(match.y_b);
      if (!fits_window(halves.left_half, xa, ya) || !fits_window(halves.right_half, xb, yb)) continue;
      Vec3 right{}, left{};
      if (!geometry.right_in_rig(xa, ya, right) || !geometry.left_in_rig(xb + halves.half_width, yb, left) ||
          geometry.right_cosine(right) < right_rim || geometry.left_cosine(left) < left_rim ||
          !(std::abs(geometry.across_in_rig(left, right)) < most_across)) {
        continue;
      }
      const Vec2 along = geometry.right_along(right);
      if (along == Vec2{}) continue;
      promise[m] = promised_variance(halves.left_half, static_cast<std::int32_t>(std::lround(xa)),
                                     static_cast<std::int32_t>(std::lround(ya)), {-along[1], along[0]});
    }
  });

  const auto columns = static_cast<std::size_t>(halves.left_half.cols / cell) + 1;
  const auto rows = static_cast<std::size_t>(halves.left_half.rows / cell) + 1;
  constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
  std::vector<std::size_t> best(columns * rows, kNone);
  for (std::size_t m = 0; m < matches.size(); ++m) {
    if (promise[m] == std::numeric_limits<double>::infinity()) continue;
    const auto column = static_cast<std::size_t>(static_cast<double>(matches[m].x_a) / cell);
    const auto row = static_cast<std::size_t>(static_cast<double>(matches[m].y_a) / cell);
    std::size_t& kept = best[row * columns + column];
    if (kept == kNone || promise[m] < promise[kept]) kept = m;
  }
  std::vector<RayMatch> thinned;
  for (const std::size_t m : best) {
    if (m != kNone) thinned.push_back(matches[m]);
  }
  return thinned;
}

}  // namespace twintrue

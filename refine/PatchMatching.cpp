#include "refine/PatchMatching.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/ParallelEach.h"
#include "refine/PatchKernel.h"

namespace twintrue {
namespace {

constexpr std::size_t kBlock = 32;  // matches that a thread takes at a time

using Normal = std::array<std::array<double, kPatchUnknowns>, kPatchUnknowns>;
using Unknowns = std::array<double, kPatchUnknowns>;

// Cholesky factor of the lower triangle in place; false if it has none.
bool factor(Normal& a) {
  for (std::size_t j = 0; j < kPatchUnknowns; ++j) {
    for (std::size_t k = 0; k < j; ++k) a[j][j] -= a[j][k] * a[j][k];
    if (!(a[j][j] > 1e-12)) return false;
    a[j][j] = std::sqrt(a[j][j]);
    for (std::size_t i = j + 1; i < kPatchUnknowns; ++i) {
      for (std::size_t k = 0; k < j; ++k) a[i][j] -= a[i][k] * a[j][k];
      a[i][j] /= a[j][j];
    }
  }
  return true;
}
Unknowns solve(const Normal& l, Unknowns x) {
  for (std::size_t i = 0; i < kPatchUnknowns; ++i) {
    for (std::size_t k = 0; k < i; ++k) x[i] -= l[i][k] * x[k];
    x[i] /= l[i][i];
  }
  for (std::size_t i = kPatchUnknowns; i-- > 0;) {
    for (std::size_t k = i + 1; k < kPatchUnknowns; ++k) x[i] -= l[k][i] * x[k];
    x[i] /= l[i][i];
  }
  return x;
}

// How the right eye's patch lies in the left eye's picture.
struct Layout {
  Vec2 middle{};     // frame pixels
  Vec2 by_column{};  // of the left eye's picture, for a pixel to the right in the right eye's
  Vec2 by_row{};
  Vec2 along{};  // unit direction of the epipolar curve
  bool seen = false;
};

Layout lay_out(const PairGeometry& geometry, const Vec2& right, const Vec2& left) {
  constexpr double kReach = 4.0;  // pixels; about what the patch's weights reach
  Layout layout;
  Vec3 r{}, l{};
  if (!geometry.right_in_rig(right[0], right[1], r) || !geometry.left_in_rig(left[0], left[1], l))
    return layout;
  const double near = geometry.inverse_distance(l, r);
  const double nearer = near + kReach / (geometry.pixels_per_radian() * 0.06);
  std::array<Vec2, 4> sides{};
  Vec2 ahead{};
  constexpr std::array<Vec2, 4> kSteps{{{kReach, 0.0}, {-kReach, 0.0}, {0.0, kReach}, {0.0, -kReach}}};
  layout.seen = geometry.left_pixel(r, near, layout.middle) && geometry.left_pixel(r, nearer, ahead);
  for (std::size_t i = 0; i < 4 && layout.seen; ++i) {
    Vec3 beside{};
    layout.seen = geometry.right_in_rig(right[0] + kSteps[i][0], right[1] + kSteps[i][1], beside) &&
                  geometry.left_pixel(beside, near, sides[i]);
  }
  if (!layout.seen) return layout;
  const double dx = ahead[0] - layout.middle[0];
  const double dy = ahead[1] - layout.middle[1];
  const double size = std::hypot(dx, dy);
  layout.seen = size > 0.0;
  for (std::size_t k = 0; k < 2; ++k) {
    layout.by_column[k] = (sides[0][k] - sides[1][k]) / (2.0 * kReach);
    layout.by_row[k] = (sides[2][k] - sides[3][k]) / (2.0 * kReach);
  }
  layout.along = {dx / size, dy / size};
  return layout;
}

std::array<float, 2> to_float(const Vec2& v) { return {static_cast<float>(v[0]), static_cast<float>(v[1])}; }

class Matcher {
 public:
  Matcher(const CodedHalves& halves, const PairGeometry& geometry, const PatchSettings& settings)
      : halves_(halves),
        geometry_(geometry),
        settings_(settings),
        kernel_(patch_kernel(best_instruction_set())) {}

  PatchMatch refine(const RayMatch& match) const {
    PatchMatch result;
    // The template lies on whole pixels; a keypoint between them takes its partner along.
    result.right = {std::round(static_cast<double>(match.x_a)), std::round(static_cast<double>(match.y_a))};
    const Vec2 left{static_cast<double>(match.x_b) + result.right[0] - static_cast<double>(match.x_a) +
                        halves_.half_width,
                    static_cast<double>(match.y_b) + result.right[1] - static_cast<double>(match.y_a)};
    result.left = left;
    if (!fits_window(halves_.left_half, result.right[0], result.right[1]) ||
        !fits_window(halves_.right_half, left[0] - halves_.half_width, left[1])) {
      return result;
    }
    const Layout layout = lay_out(geometry_, result.right, left);
    if (!layout.seen) return result;
    PatchTemplate patch;
    PatchWindow window;
    const auto right_x = static_cast<std::int32_t>(result.right[0]);
    const auto right_y = static_cast<std::int32_t>(result.right[1]);
    kernel_.cut(halves_.left_half.row(right_y) + right_x, halves_.left_half.pitch(), window);
    kernel_.take(window, weights_, patch);
    const auto left_x = static_cast<std::int32_t>(std::lround(left[0]));
    const auto left_y = static_cast<std::int32_t>(std::lround(left[1]));
    kernel_.cut(halves_.right_half.row(left_y) + (left_x - halves_.half_width), halves_.right_half.pitch(),
                window);
    fit(layout, patch, window,
        {static_cast<double>(left_x - kWindowMiddle), static_cast<double>(left_y - kWindowMiddle)}, left,
        result);
    return result;
  }

 private:
  // `origin`: the window's first pixel in the frame.
  void fit(const Layout& layout, const PatchTemplate& patch, const PatchWindow& window, const Vec2& origin,
           const Vec2& start, PatchMatch& result) const {
    constexpr double kLeastSquare = 0.25;  // squared grey levels: less is noise
    if (patch.square < kLeastSquare) {
      result.end = PatchEnd::kFlat;
      return;
    }
    const Vec2& e = layout.along;
    const Vec2 n{-e[1], e[0]};
    const double det = layout.by_column[0] * layout.by_row[1] - layout.by_row[0] * layout.by_column[1];
    // Directions in the left picture as steps in the right one.
    const auto back = [&](const Vec2& d) {
      return Vec2{(layout.by_row[1] * d[0] - layout.by_row[0] * d[1]) / det,
                  (layout.by_column[0] * d[1] - layout.by_column[1] * d[0]) / det};
    };
    const Vec2 e_back = back(e);
    const Vec2 n_back = back(n);
    // From where the match was, which is nearer in depth than across.
    double shift = 0.0, by_column = 0.0, by_row = 0.0, across = 0.0;
    const double start_across = n[0] * (start[0] - layout.middle[0]) + n[1] * (start[1] - layout.middle[1]);
    across = start_across;
    shift = e[0] * (start[0] - layout.middle[0]) + e[1] * (start[1] - layout.middle[1]);
    const double start_shift = shift;
    double gain = 1.0, level = 0.0;
    PatchSums sums;
    Normal root{};
    bool first = true;
    for (int step = 0; step < settings_.most_steps; ++step) {
      PatchPlace place;
      const Vec2 middle{layout.middle[0] - origin[0] + shift * e[0] + across * n[0],
                        layout.middle[1] - origin[1] + shift * e[1] + across * n[1]};
      place.middle = to_float(middle);
      place.by_column =
          to_float({layout.by_column[0] + by_column * e[0], layout.by_column[1] + by_column * e[1]});
      place.by_row = to_float({layout.by_row[0] + by_row * e[0], layout.by_row[1] + by_row * e[1]});
      place.along = to_float(e);
      place.across = to_float(n);
      place.along_back = to_float({gain * e_back[0], gain * e_back[1]});
      place.across_back = to_float({gain * n_back[0], gain * n_back[1]});
      place.gain = static_cast<float>(gain);
      place.level = static_cast<float>(level);
      if (!place_fits(place)) {
        result.end = first ? PatchEnd::kOutside : PatchEnd::kMoved;
        return;
      }
      kernel_.measure(window, weights_, patch, place, sums);
      if (first) {
        first = false;
        gain = std::clamp(1.0 + sums.pull[4] / patch.square, 0.2, 5.0);
        level = sums.pull[5];
        // The slopes hold the gain: if it is far from what was taken for it they are taken anew.
        constexpr double kFarGain = 0.3;
        if (std::abs(gain - 1.0) > kFarGain) continue;
        for (std::size_t i = 0; i < kPatchUnknowns; ++i) {
          const double by_gain = i < 4 ? sums.normal[4][i] : i == 4 ? patch.square : 0.0;
          const double by_level = i < 5 ? sums.normal[5][i] : 1.0;
          sums.pull[i] -= (gain - 1.0) * by_gain + level * by_level;
        }
      }
      root = sums.normal;
      // What the slopes of the disparity are known to beforehand, where the patch does not tell.
      constexpr double kSlopeWeight = 1.0 / (0.3 * 0.3 * 177.0 * 0.25);
      root[1][1] += kSlopeWeight;
      root[2][2] += kSlopeWeight;
      Unknowns pull = sums.pull;
      pull[1] += kSlopeWeight * by_column;
      pull[2] += kSlopeWeight * by_row;
      if (!factor(root)) {
        result.end = PatchEnd::kFlat;
        return;
      }
      const Unknowns x = solve(root, pull);
      const double most = std::max(std::abs(x[0]), std::abs(x[3]));
      const double kept = most > 1.0 ? 1.0 / most : 1.0;
      shift -= kept * x[0];
      by_column -= kept * x[1];
      by_row -= kept * x[2];
      across -= kept * x[3];
      gain += kept * x[4];
      level += kept * x[5];
      if (std::hypot(shift - start_shift, across - start_across) > settings_.most_moved) {
        result.end = PatchEnd::kMoved;
        return;
      }
      if (most < settings_.last_step) {
        finish(layout, patch, sums, root, gain, shift, across, start_across, result);
        return;
      }
    }
    result.end = PatchEnd::kNoEnd;
  }

  void finish(const Layout& layout, const PatchTemplate& patch, const PatchSums& sums, const Normal& root,
              double gain, double shift, double across, double start_across, PatchMatch& result) const {
    const Vec2& e = layout.along;
    result.along = e;
    result.left = {layout.middle[0] + shift * e[0] - across * e[1],
                   layout.middle[1] + shift * e[1] + across * e[0]};
    result.moved_across = across - start_across;
    const double explained = gain * gain * patch.square;
    result.correlation = gain > 0.0 ? std::sqrt(explained / (explained + sums.square)) : 0.0;
    const Unknowns column = solve(root, {0.0, 0.0, 0.0, 1.0, 0.0, 0.0});
    const double noise = sums.square + settings_.added_noise * settings_.added_noise;
    // The sums are means over the patch: it counts as so many pixels.
    constexpr double kPixels = 77.0;
    result.variance_across = column[3] * noise / kPixels;
    result.end = result.correlation >= settings_.least_correlation ? PatchEnd::kConverged : PatchEnd::kUnlike;
  }

  const CodedHalves& halves_;
  const PairGeometry& geometry_;
  const PatchSettings& settings_;
  PatchWeights weights_;
  PatchKernel kernel_;
};

}  // namespace

bool fits_window(const cve::XMat_<std::int16_t>& half, double x, double y) {
  return x >= kCutBefore && y >= kCutBefore && x < half.cols - kCutBehind - 1 &&
         y < half.rows - kCutBehind - 1;
}

std::vector<PatchMatch> match_patches(const CodedHalves& halves, const PairGeometry& geometry,
                                      const std::vector<RayMatch>& matches, const PatchSettings& settings) {
  const Matcher matcher(halves, geometry, settings);
  std::vector<PatchMatch> refined(matches.size());
  parallel_each((matches.size() + kBlock - 1) / kBlock, [&](std::size_t block) {
    const std::size_t end = std::min(matches.size(), (block + 1) * kBlock);
    for (std::size_t m = block * kBlock; m < end; ++m) refined[m] = matcher.refine(matches[m]);
  });
  return refined;
}

}  // namespace twintrue

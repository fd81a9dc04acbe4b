#pragma once

// How far a pair of pixels is off under a pose, by the plain model of the lens.

#include <array>

#include "support/PlainLens.h"

namespace twintrue::accuracy {

// A pair of pixels of the whole frame that are to see the same point.
struct PixelPair {
  double right_x;
  double right_y;
  double left_x;
  double left_y;
};

// The four differences between a pair's pixels and where each eye's ray, cut at the pair's depth, lands in
// the other eye. Half of the sum of their squares is the search's error. Returns false if the pair has none:
// parallel rays, a depth that isn't in front of the rig between the bounds, a projection that fails.
template <typename T>
bool reprojection(const PlainLens& lens, const T* pose, const PixelPair& pair, double depth_min,
                  double depth_max, std::array<T, 4>& difference) {
  std::array<T, 3> l, r;
  const T* right_eye = pose;
  const T* left_eye = pose + kEyeValues;
  if (!pixel_to_ray(lens, kLeft, left_eye, pair.left_x, pair.left_y, l)) return false;
  if (!pixel_to_ray(lens, kRight, right_eye, pair.right_x, pair.right_y, r)) return false;
  // Points of closest approach of the lines (-b/2, 0, 0) + t l and (b/2, 0, 0) + u r, from the two conditions
  // that what joins them is square to both.
  const T lr = l[0] * r[0] + l[1] * r[1] + l[2] * r[2];
  const T det = T(1.0) - lr * lr;
  if (!(plain_value(det) > 1e-18)) return false;
  const T b(lens.baseline);
  const T t = b * (l[0] - lr * r[0]) / det;
  const T u = b * (lr * l[0] - r[0]) / det;
  const T z = (t * l[2] + u * r[2]) * T(0.5);
  const double depth = -plain_value(z);
  if (!(depth > depth_min && depth < depth_max)) return false;
  T x, y;
  const T along_left = z / l[2];
  if (!ray_to_pixel(lens, kRight, right_eye, {l[0] * along_left - b, l[1] * along_left, z}, x, y)) {
    return false;
  }
  difference[0] = x - T(pair.right_x);
  difference[1] = y - T(pair.right_y);
  const T along_right = z / r[2];
  if (!ray_to_pixel(lens, kLeft, left_eye, {r[0] * along_right + b, r[1] * along_right, z}, x, y)) {
    return false;
  }
  difference[2] = x - T(pair.left_x);
  difference[3] = y - T(pair.left_y);
  return true;
}

}  // namespace twintrue::accuracy

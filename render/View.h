#pragma once

// What a picture shows of the world around an eye: pixel of the picture to ray.
//
// Rays are those of lens/RigModel.h: x to the right, y upward, -z straight ahead, in the rig's frame of axes.
// Both eyes of a pair get the same view, each from its own place, so a point that is far away comes to the
// same pixel of both pictures. Of a near one the two pixels share their row in a rectilinear view without
// pan, whatever its tilt, since the eyes stand beside each other along the rows there. In the other views
// they do so on the horizon alone: their rows are angles, and a near point has other angles for each eye.

#include <array>

namespace twintrue::render {

enum class Projection {
  kHalfEquirect,  // columns are degrees of longitude, rows of latitude, 180 each way
  kRectilinear,   // straight lines stay straight
  kFisheye,       // ideal equidistant: the distance from the middle is proportional to the angle
};

struct View {
  Projection projection = Projection::kHalfEquirect;
  int width = 0;  // pixels
  int height = 0;
  // Field of view in radians: of a rectilinear picture across its width, of a fisheye across its circle,
  // which touches the nearer sides of the picture. A half equirectangular view has none.
  double fov = 0.0;
  // Direction of the middle, radians: to the right, and then upward.
  double pan = 0.0;
  double tilt = 0.0;
};

// Limits of a view, radians. Beyond them a picture would be a few pixels stretched to streaks.
inline constexpr double kSmallestFov = 0.001;
inline constexpr double kLargestRectilinearFov = 2.97;     // 170 degrees
inline constexpr double kLargestFisheyeFov = 6.2831853072;  // all around

// Whether it has a size and a field of view within the limits, and its direction is a number.
bool is_possible(const View& view);

// Stores the unit ray that the view shows at a point of its picture; whole numbers are pixel centres. Returns
// false, with some ray, for a point beyond the circle of a fisheye view. The point may lie beyond the
// picture's edges. Threads: any number.
bool view_ray(const View& view, double x, double y, std::array<double, 3>& ray);

// Pixels a radian, on the mean of the picture.
double view_density(const View& view);

}  // namespace twintrue::render

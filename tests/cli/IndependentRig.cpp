#include "cli/IndependentRig.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>

#include "support/TempDir.h"

namespace cli_test {
namespace {

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;

constexpr double kHalfPi = std::numbers::pi / 2.0;
constexpr double kRadiansPerMillidegree = std::numbers::pi / 180000.0;

Vec3 operator+(const Vec3& a, const Vec3& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }
Vec3 operator-(const Vec3& a, const Vec3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
Vec3 operator*(double s, const Vec3& a) { return {s * a[0], s * a[1], s * a[2]}; }
double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Vec3 operator*(const Mat3& m, const Vec3& v) { return {dot(m[0], v), dot(m[1], v), dot(m[2], v)}; }
Mat3 operator*(const Mat3& a, const Mat3& b) {
  Mat3 product{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      for (std::size_t k = 0; k < 3; ++k) product[i][j] += a[i][k] * b[k][j];
    }
  }
  return product;
}
Mat3 transposed(const Mat3& m) {
  return {{{m[0][0], m[1][0], m[2][0]}, {m[0][1], m[1][1], m[2][1]}, {m[0][2], m[1][2], m[2][2]}}};
}
Mat3 about_x(double a) {
  return {{{1, 0, 0}, {0, std::cos(a), -std::sin(a)}, {0, std::sin(a), std::cos(a)}}};
}
Mat3 about_y(double a) {
  return {{{std::cos(a), 0, std::sin(a)}, {0, 1, 0}, {-std::sin(a), 0, std::cos(a)}}};
}
Mat3 about_z(double a) {
  return {{{std::cos(a), -std::sin(a), 0}, {std::sin(a), std::cos(a), 0}, {0, 0, 1}}};
}

struct Pixel {
  double x;
  double y;
};

struct Eye {
  bool format_2 = false;
  Mat3 eye_from_rig{};
  Vec3 position{};
  double scale = 0.0;  // pixels at 90 degrees off the axis
  double centre_x = 0.0;
  double centre_y = 0.0;
  double limit = 0.0;  // angle off the axis, in units of 90 degrees
  double magnify_v = 1.0;
  double magnify_h = 1.0;
  double begin_x = 0.0;
  double end_x = 0.0;
  std::array<double, 6> coefficients{};

  double distorted(double r) const {
    double percent = 0.0;
    for (std::size_t i = 6; i-- > 0;) percent = (percent + coefficients[i]) * r;
    return format_2 ? r * (1.0 + 0.01 * percent) : r / (1.0 - 0.01 * percent);
  }

  // The distortion of a real lens rises over the whole field.
  double undistorted(double r) const {
    double low = 0.0;
    double high = 1.5;
    for (int i = 0; i < 60; ++i) {
      const double middle = 0.5 * (low + high);
      (distorted(middle) < r ? low : high) = middle;
    }
    return 0.5 * (low + high);
  }

  // The eye looks along negative z; the picture's y runs downward.
  std::optional<Vec3> ray_of(const Pixel& pixel) const {
    double u = (pixel.x - centre_x) / scale;
    double v = (centre_y - pixel.y) / scale;
    if (format_2) {
      u /= magnify_v;
      v /= magnify_h;
    }
    const double r = std::hypot(u, v);
    const double factor = r > 1e-12 ? undistorted(r) / r : 1.0;
    u *= factor;
    v *= factor;
    if (!format_2) {
      u /= magnify_v;
      v /= magnify_h;
    }
    const double rho = std::hypot(u, v);
    if (rho > limit) return std::nullopt;
    const double sine = rho > 1e-12 ? std::sin(rho * kHalfPi) / rho : kHalfPi;
    return transposed(eye_from_rig) * Vec3{u * sine, v * sine, -std::cos(rho * kHalfPi)};
  }

  std::optional<Pixel> pixel_of(const Vec3& ray) const {
    const Vec3 d = eye_from_rig * ray;
    const double q = std::hypot(d[0], d[1]);
    const double rho = std::atan2(q, -d[2]) / kHalfPi;
    if (rho > limit) return std::nullopt;
    double u = q > 0.0 ? d[0] / q : 0.0;
    double v = q > 0.0 ? d[1] / q : 0.0;
    if (format_2) {
      u *= distorted(rho) * magnify_v;
      v *= distorted(rho) * magnify_h;
    } else {
      u *= rho * magnify_v;
      v *= rho * magnify_h;
      const double r = std::hypot(u, v);
      const double factor = r > 0.0 ? distorted(r) / r : 1.0;
      u *= factor;
      v *= factor;
    }
    const Pixel pixel{centre_x + scale * u, centre_y - scale * v};
    if (pixel.x < begin_x || pixel.x >= end_x) return std::nullopt;
    return pixel;
  }
};

struct Rig {
  Eye left;
  Eye right;
  double height = 0.0;
  double baseline = 0.0;
};

// Lines of `key = value;`, the value a number, perhaps within quotes.
std::map<std::string, double> read_items(const std::string& path) {
  std::istringstream text(testing_support::read_file(path));
  std::map<std::string, double> items;
  for (std::string line; std::getline(text, line);) {
    line.resize(std::min(line.find("//"), line.size()));
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::size_t digits = line.find_first_of("-.0123456789", equals);
    if (digits == std::string::npos) throw std::runtime_error(path + ": no number in " + line);
    items[line.substr(0, line.find_last_not_of(" =", equals) + 1)] = std::stod(line.substr(digits));
  }
  return items;
}

Eye read_eye(std::map<std::string, double>& items, const std::string& side, bool format_2, double width,
             double height) {
  Eye eye;
  eye.format_2 = format_2;
  const double sign = side == "left" ? 1.0 : -1.0;
  double unit = 1.0;          // of angles
  double pixel_unit = width;  // of offsets
  double magnify_unit = 1.0;
  if (format_2) {
    const double per_nanometre = width / items["AOV_input_width"];
    eye.scale = 90000.0 / items["FOV"] * items["img_c_diameter"] * per_nanometre;
    eye.centre_x = width * 0.5 + per_nanometre * items[side + "_img_c_center_X"];
    eye.centre_y = height * 0.5 - per_nanometre * items[side + "_img_c_center_Y"];
    eye.limit = items["FOV"] / 180000.0;
    unit = kRadiansPerMillidegree;
    pixel_unit = per_nanometre;
    magnify_unit = 1.0 / 16384.0;
  } else {
    eye.scale = items["image_circle_radius"] / items["sensor_pitch"];
    eye.centre_x = width * 0.5 + sign * 0.5 * items["inter_image_circle_distance"] / items["sensor_pitch"];
    eye.centre_y = height * 0.5;
    eye.limit = 190.0 / 180.0;
  }
  eye.centre_x += pixel_unit * items[side + "_eye_x0"];
  eye.centre_y -= pixel_unit * items[side + "_eye_y0"];
  eye.magnify_v = magnify_unit * items[side + "_eye_magnify_v"];
  eye.magnify_h = magnify_unit * items[side + "_eye_magnify_h"];
  const Mat3 pan = about_y(unit * items[side + "_eye_lambda"]);
  const Mat3 tilt = about_x(unit * items[side + "_eye_psi"]);
  const Mat3 roll = about_z(unit * items[side + "_eye_roll"]);
  eye.eye_from_rig = format_2 ? roll * tilt * pan : pan * tilt * roll;
  eye.position = {-sign * 0.5 * items["baseline"], 0.0, 0.0};
  eye.begin_x = side == "left" ? width / 2 : 0.0;
  eye.end_x = side == "left" ? width : width / 2;
  for (std::size_t i = 0; i < 6; ++i) {
    eye.coefficients[i] = items["distortion_coeff" + std::to_string(i + 1)];
  }
  return eye;
}

Rig read_rig(const std::string& path) {
  auto items = read_items(path);
  const bool format_2 = items.count("PIX_input_width") > 0;
  const double width = items[format_2 ? "PIX_input_width" : "input_width"];
  Rig rig;
  rig.height = items[format_2 ? "PIX_input_height" : "input_height"];
  if (!(width > 0.0 && rig.height > 0.0)) throw std::runtime_error("no frame size in " + path);
  rig.baseline = items["baseline"];
  rig.left = read_eye(items, "left", format_2, width, rig.height);
  rig.right = read_eye(items, "right", format_2, width, rig.height);
  return rig;
}

// Squared error of a pair under a rig.
std::optional<double> pair_error(const Rig& rig, const Pixel& left, const Pixel& right) {
  const std::optional<Vec3> d0 = rig.left.ray_of(left);
  const std::optional<Vec3> d1 = rig.right.ray_of(right);
  if (!d0 || !d1) return std::nullopt;
  const Vec3 normal = cross(*d0, *d1);
  const Vec3 between = rig.right.position - rig.left.position;
  const double nn = dot(normal, normal);
  if (nn == 0.0) return std::nullopt;
  const Vec3 q0 = rig.left.position + (dot(cross(between, *d1), normal) / nn) * *d0;
  const Vec3 q1 = rig.right.position + (dot(cross(between, *d0), normal) / nn) * *d1;
  const double z = 0.5 * (q0[2] + q1[2]);
  if (!(z < 0.0)) return std::nullopt;
  const Vec3 base{rig.baseline, 0.0, 0.0};
  const std::optional<Pixel> seen_right = rig.right.pixel_of((z / (*d0)[2]) * *d0 - base);
  const std::optional<Pixel> seen_left = rig.left.pixel_of((z / (*d1)[2]) * *d1 + base);
  if (!seen_right || !seen_left) return std::nullopt;
  const double dx0 = seen_left->x - left.x;
  const double dy0 = seen_left->y - left.y;
  const double dx1 = seen_right->x - right.x;
  const double dy1 = seen_right->y - right.y;
  return 0.5 * (dx0 * dx0 + dy0 * dy0 + dx1 * dx1 + dy1 * dy1);
}

}  // namespace

LensError judge_lens(const std::string& true_lens, const std::string& other_lens) {
  const Rig truth = read_rig(true_lens);
  const Rig other = read_rig(other_lens);
  // Scene points within 80 degrees of the axis, even over the picture, 0.5 to 10 m away.
  constexpr int kPoints = 4000;
  constexpr double kField = 80.0 * std::numbers::pi / 180.0;
  std::mt19937_64 engine(20);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  LensError error;
  double sum = 0.0;
  for (int i = 0; i < kPoints; ++i) {
    const double angle = kField * std::sqrt(unit(engine));
    const double turn = 2.0 * std::numbers::pi * unit(engine);
    const double distance = 0.5 * std::pow(20.0, unit(engine));
    const Vec3 point =
        distance * Vec3{std::sin(angle) * std::cos(turn), std::sin(angle) * std::sin(turn), -std::cos(angle)};
    const std::optional<Pixel> left = truth.left.pixel_of(point - truth.left.position);
    const std::optional<Pixel> right = truth.right.pixel_of(point - truth.right.position);
    if (!left || !right) continue;
    if (left->y < 0 || left->y > truth.height - 1 || right->y < 0 || right->y > truth.height - 1) continue;
    if (const std::optional<double> squared = pair_error(other, *left, *right)) {
      sum += *squared;
      ++error.pairs;
    } else {
      ++error.lost;
    }
  }
  error.rms_px = std::sqrt(sum / error.pairs);
  return error;
}

}  // namespace cli_test

#include "Room.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "Draws.h"
#include "GeneratedCase.h"
#include "base/ParallelEach.h"
#include "support/PlainLens.h"

namespace twintrue::refine_bench {
namespace {

using accuracy::Draws;
using accuracy::kDegree;
using accuracy::kEyeValues;
using accuracy::kLeft;
using accuracy::kRight;
using accuracy::PlainLens;
using Vec = std::array<double, 3>;

constexpr double kNever = std::numeric_limits<double>::infinity();

double hash(std::int64_t a, std::int64_t b, std::int64_t c, std::uint64_t seed) {
  auto h = static_cast<std::uint64_t>(a) * 0x9E3779B97F4A7C15u ^
           static_cast<std::uint64_t>(b) * 0xC2B2AE3D27D4EB4Fu ^
           static_cast<std::uint64_t>(c) * 0x165667B19E3779F9u ^ seed * 0xD6E8FEB86659FD93u;
  h = (h ^ (h >> 29)) * 0xBF58476D1CE4E5B9u;
  h = (h ^ (h >> 32)) * 0x94D049BB133111EBu;
  return static_cast<double>((h ^ (h >> 29)) >> 11) * 0x1p-53;
}

// Noise in space of grains from `coarse` metres down to `fine`, about 0.5. Smooth within a grain.
double paint(const Vec& p, double coarse, double fine, std::uint64_t seed) {
  double sum = 0.0;
  double weight = 0.35;
  for (double grain = coarse; grain > fine; grain *= 0.5, weight *= 0.8) {
    std::array<std::int64_t, 3> cell{};
    Vec f{};
    for (std::size_t i = 0; i < 3; ++i) {
      const double at = p[i] / grain;
      cell[i] = static_cast<std::int64_t>(std::floor(at));
      const double t = at - std::floor(at);
      f[i] = t * t * (3.0 - 2.0 * t);
    }
    double value = 0.0;
    for (int k = 0; k < 8; ++k) {
      const double wx = (k & 1) != 0 ? f[0] : 1.0 - f[0];
      const double wy = (k & 2) != 0 ? f[1] : 1.0 - f[1];
      const double wz = (k & 4) != 0 ? f[2] : 1.0 - f[2];
      value +=
          wx * wy * wz * (hash(cell[0] + (k & 1), cell[1] + (k >> 1 & 1), cell[2] + (k >> 2), seed) - 0.5);
    }
    sum += weight * value;
    seed += 77;
  }
  return 0.4 + sum;
}

struct Thing {
  Vec middle{};
  Vec half{};  // of a box; a ball's radius in the first
  bool ball = false;
  double brightness = 1.0;
  double gloss = 0.0;
};

struct Hit {
  double distance = kNever;
  Vec normal{};
};

Hit hit_box(const Vec& from, const Vec& ray, const Vec& middle, const Vec& half, bool inside) {
  double enter = -kNever, leave = kNever;
  std::size_t enter_axis = 0, leave_axis = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    if (std::abs(ray[i]) < 1e-12) {
      if (std::abs(from[i] - middle[i]) > half[i]) return {};
      continue;
    }
    double a = (middle[i] - half[i] - from[i]) / ray[i];
    double b = (middle[i] + half[i] - from[i]) / ray[i];
    if (a > b) std::swap(a, b);
    if (a > enter) enter = a, enter_axis = i;
    if (b < leave) leave = b, leave_axis = i;
  }
  if (enter > leave) return {};
  const double t = inside ? leave : enter;
  if (t <= 0.0) return {};
  Hit hit{t, {}};
  const std::size_t axis = inside ? leave_axis : enter_axis;
  hit.normal[axis] = ray[axis] > 0 ? -1.0 : 1.0;
  return hit;
}

Hit hit_ball(const Vec& from, const Vec& ray, const Vec& middle, double radius) {
  double a = 0.0, b = 0.0, c = -radius * radius;
  for (std::size_t i = 0; i < 3; ++i) {
    const double d = from[i] - middle[i];
    a += ray[i] * ray[i];
    b += ray[i] * d;
    c += d * d;
  }
  const double root = b * b - a * c;
  if (root < 0.0) return {};
  const double t = (-b - std::sqrt(root)) / a;
  if (t <= 0.0) return {};
  Hit hit{t, {}};
  for (std::size_t i = 0; i < 3; ++i) hit.normal[i] = (from[i] + t * ray[i] - middle[i]) / radius;
  return hit;
}

class RoomScene {
 public:
  RoomScene(Draws& draws, double finest)
      : seed_(static_cast<std::uint64_t>(draws.unit() * 1e9)), finest_(finest) {
    for (double& h : half_) h = draws.between(1.0, 2.6);
    constexpr int kThings = 14;
    for (int i = 0; i < kThings; ++i) {
      Thing thing;
      const double angle = draws.between(0.2, 1.5);
      const double round = draws.between(0.0, 4.0 * accuracy::kHalfPi);
      const double distance = draws.between(0.6, 1.8);
      thing.middle = {distance * std::sin(angle) * std::cos(round),
                      distance * std::sin(angle) * std::sin(round), -distance * std::cos(angle)};
      for (double& h : thing.half) h = draws.between(0.04, 0.25) * distance;
      thing.ball = draws.unit() < 0.5;
      thing.brightness = draws.between(0.5, 1.2);
      thing.gloss = draws.unit() < 0.4 ? draws.between(0.1, 0.6) : 0.0;
      things_.push_back(thing);
    }
  }

  // Linear brightness.
  double look(const Vec& from, const Vec& ray) const {
    Hit best = hit_box(from, ray, {0, 0, 0}, half_, true);
    double brightness = 0.9, gloss = 0.0;
    std::uint64_t seed = seed_;
    for (std::size_t k = 0; k < things_.size(); ++k) {
      const Thing& thing = things_[k];
      const Hit hit = thing.ball ? hit_ball(from, ray, thing.middle, thing.half[0])
                                 : hit_box(from, ray, thing.middle, thing.half, false);
      if (hit.distance >= best.distance) continue;
      best = hit;
      brightness = thing.brightness;
      gloss = thing.gloss;
      seed = seed_ + 1000 * (k + 1);
    }
    Vec at{};
    for (std::size_t i = 0; i < 3; ++i) at[i] = from[i] + best.distance * ray[i];
    constexpr Vec kLight{0.36, 0.80, 0.48};
    double lit = 0.0, size = 0.0, facing = 0.0;
    for (std::size_t i = 0; i < 3; ++i) {
      lit += best.normal[i] * kLight[i];
      facing += best.normal[i] * ray[i];
      size += ray[i] * ray[i];
    }
    double shine = 0.0;
    if (gloss > 0.0) {
      for (std::size_t i = 0; i < 3; ++i) shine += (ray[i] - 2.0 * facing * best.normal[i]) * kLight[i];
      shine = gloss * std::pow(std::max(shine / std::sqrt(size), 0.0), 40.0);
    }
    const double reflected = std::clamp(paint(at, 0.4, finest_, seed), 0.02, 1.0);
    return brightness * (0.55 + 0.45 * lit) * reflected * reflected + shine;
  }

 private:
  Vec half_{};
  std::vector<Thing> things_;
  std::uint64_t seed_;
  double finest_;
};

double srgb(double linear) {
  const double v = std::clamp(linear, 0.0, 1.0);
  return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
}

void write_text(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  if (!file.flush()) throw std::runtime_error("can't write " + path.string());
}

}  // namespace

void render_room(const RoomSettings& settings, const std::filesystem::path& folder) {
  Draws draws(settings.seed);
  PlainLens lens = accuracy::draw_lens(draws, (settings.width >= 8192   ? 4
                                               : settings.width >= 4096 ? 2
                                                                        : 0) +
                                                  settings.format - 1);
  std::filesystem::create_directories(folder);
  write_text(folder / "nominal.lens", accuracy::lens_text(lens));
  for (const std::size_t eye : {std::size_t{0}, kEyeValues}) {
    for (std::size_t i = 0; i < kEyeValues; ++i) {
      const double most =
          i < 3 ? settings.angle_error_deg * kDegree : settings.offset_error_px * lens.width / 4096.0;
      lens.pose[eye + i] += draws.between(-most, most);
    }
  }
  write_text(folder / "truth.lens", accuracy::lens_text(lens));
  const RoomScene scene(draws, 0.006 * 4096.0 / lens.width);

  constexpr int kSamples = 3;
  const auto width = static_cast<std::size_t>(lens.width);
  const auto height = static_cast<std::size_t>(lens.height);
  std::vector<std::uint8_t> bytes(3 * width * height);
  parallel_each(height, [&](std::size_t row) {
    Draws noise(settings.seed * 1000003 + row);
    // Rays at the corners of the pixels; between them they are as good as straight.
    for (const auto side : {kRight, kLeft}) {
      const double from_x = (side == kRight ? 0.5 : -0.5) * lens.baseline;
      const double* eye = &lens.pose[side * kEyeValues];
      const std::size_t half = width / 2;
      std::vector<Vec> corners(2 * (half + 1));
      std::vector<char> seen(corners.size());
      const std::size_t first = side == kRight ? 0 : half;
      for (std::size_t k = 0; k < corners.size(); ++k) {
        const std::size_t x = k % (half + 1);
        const double y = static_cast<double>(row + k / (half + 1)) - 0.5;
        seen[k] = accuracy::pixel_to_ray(lens, side, eye, static_cast<double>(first + x) - 0.5, y, corners[k])
                      ? 1
                      : 0;
      }
      for (std::size_t x = 0; x < half; ++x) {
        const std::size_t below = x + half + 1;
        double sum = 0.0;
        if (seen[x] && seen[x + 1] && seen[below] && seen[below + 1]) {
          for (int j = 0; j < kSamples; ++j) {
            for (int i = 0; i < kSamples; ++i) {
              const double a = (i + 0.5) / kSamples, b = (j + 0.5) / kSamples;
              Vec ray{};
              for (std::size_t c = 0; c < 3; ++c) {
                ray[c] = (1 - b) * ((1 - a) * corners[x][c] + a * corners[x + 1][c]) +
                         b * ((1 - a) * corners[below][c] + a * corners[below + 1][c]);
              }
              sum += scene.look({from_x, 0.0, 0.0}, ray);
            }
          }
          sum /= kSamples * kSamples;
          // Photons: the root of the brightness has even noise.
          const double root = std::max(std::sqrt(sum) + settings.noise / 255.0 * noise.normal(), 0.0);
          sum = root * root;
        }
        const double level = 255.0 * srgb(sum);
        for (std::size_t c = 0; c < 3; ++c) {
          bytes[3 * (row * width + first + x) + c] =
              static_cast<std::uint8_t>(std::clamp(std::lround(level), 0L, 255L));
        }
      }
    }
  });
  const std::string path = (folder / "frame.png").string();
  const auto file = OIIO::ImageOutput::create(path);
  OIIO::ImageSpec spec(lens.width, lens.height, 3, OIIO::TypeDesc::UINT8);
  spec.attribute("png:compressionLevel", 1);
  if (!file || !file->open(path, spec) || !file->write_image(OIIO::TypeDesc::UINT8, bytes.data()) ||
      !file->close()) {
    throw std::runtime_error("can't write " + path);
  }
}

}  // namespace twintrue::refine_bench

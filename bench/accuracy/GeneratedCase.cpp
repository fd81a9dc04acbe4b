#include "GeneratedCase.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include <fmt/format.h>

#include "Draws.h"
#include "apps/TwinTrue/RunDriver.h"

namespace twintrue::accuracy {
namespace {

constexpr double kReach = 85.0 * kDegree;
constexpr double kNearest = 0.5;  // metres
constexpr double kFarthest = 10.0;
constexpr double kSensorWidth = 36.0448;  // mm
constexpr double kReferenceWidth = 8192.0;
constexpr double kMostDistortion = 3.0;  // percent at 90 degrees
// Windows in which a wrong partner lies, as shares of the half frame's shorter side.
constexpr double kWrongReachX = 0.12;
constexpr double kWrongReachY = 0.06;
constexpr int kDrawsPerMatch = 60;  // before a frame counts as full

double round_to(double value, double digits) { return std::round(value * digits) / digits; }

RigState read_back(const PlainLens& lens) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / fmt::format("accuracy-{}.lens", getpid());
  std::ofstream(path) << lens_text(lens);
  RigState rig;
  const bool usable = read_lens(rig, path.string());
  std::filesystem::remove(path);
  if (!usable) throw std::runtime_error("the library can't read a generated lens file");
  return rig;
}

struct RankedMatch {
  RayMatch match;
  double worth;
};

// The matches of one frame by cell.
class MatchDraw {
 public:
  MatchDraw(Draws& draws, const CaseSettings& settings, const Case& one, const fpu::GridIF& grid)
      : draws_(draws), settings_(settings), case_(one), grid_(grid) {}

  // Adds a match; false if the point shows in one eye only or its cell is full.
  bool add() {
    double angle = 0.0;
    double distance = 0.0;
    const auto p = draw_point(draws_, kReach, kNearest, kFarthest, &angle, &distance);
    const PlainLens& lens = case_.lens;
    const double half_base = lens.baseline / 2.0;
    double xa = 0.0, ya = 0.0, xb = 0.0, yb = 0.0;
    if (!ray_to_pixel(lens, kRight, &case_.truth[0], {p[0] - half_base, p[1], p[2]}, xa, ya) ||
        !ray_to_pixel(lens, kLeft, &case_.truth[kEyeValues], {p[0] + half_base, p[1], p[2]}, xb, yb)) {
      return false;
    }
    xb -= lens.half_width();
    const bool wrong = draws_.unit() < settings_.outliers;
    if (wrong) {
      const double side = std::min(lens.width / 2, lens.height);
      xb = xa + side * draws_.between(-kWrongReachX, kWrongReachX);
      yb = ya + side * draws_.between(-kWrongReachY, kWrongReachY);
    }
    RankedMatch ranked{};
    RayMatch& match = ranked.match;
    match.x_a = to_pixel(xa);
    match.y_a = to_pixel(ya);
    match.x_b = to_pixel(xb);
    match.y_b = to_pixel(yb);
    const float last_x = static_cast<float>(lens.width / 2 - 1);
    const float last_y = static_cast<float>(lens.height - 1);
    if (!(match.x_b >= 0.0f && match.x_b <= last_x && match.y_b >= 0.0f && match.y_b <= last_y)) return false;
    if (match.x_a < static_cast<float>(grid_.areaLeft()) || match.y_a < static_cast<float>(grid_.areaTop()) ||
        !grid_.cellIndexOf(static_cast<std::int32_t>(match.x_a), static_cast<std::int32_t>(match.y_a),
                           &match.cell)) {
      return false;
    }
    match.accepted = 1;
    // Wrong matches have less support, so most of them rank behind.
    ranked.worth = draws_.unit() + (wrong ? 0.0 : 0.5);
    auto& cell = by_cell_[match.cell];
    if (static_cast<std::int32_t>(cell.size()) >= grid_.maxKpsInCell()) return false;
    cell.push_back(ranked);
    ++count_;
    return true;
  }

  int count() const { return count_; }

  // Cell by cell, best first, ranks filled in.
  std::vector<RayMatch> ranked() {
    std::vector<RayMatch> matches;
    for (auto& entry : by_cell_) {
      std::stable_sort(entry.second.begin(), entry.second.end(),
                       [](const RankedMatch& a, const RankedMatch& b) { return a.worth > b.worth; });
      std::int32_t rank = 0;
      for (RankedMatch& one : entry.second) {
        one.match.rank = rank++;
        matches.push_back(one.match);
      }
    }
    return matches;
  }

 private:
  float to_pixel(double at) {
    return static_cast<float>(std::round(at + settings_.noise_px * draws_.normal()));
  }

  Draws& draws_;
  const CaseSettings& settings_;
  const Case& case_;
  const fpu::GridIF& grid_;
  std::map<std::int32_t, std::vector<RankedMatch>> by_cell_;
  int count_ = 0;
};

}  // namespace

PlainLens draw_lens(Draws& draws, int index) {
  constexpr int kWidths[] = {2048, 4096, 8192};
  PlainLens lens;
  lens.format = 1 + index % 2;
  lens.width = kWidths[(index / 2) % 3];
  lens.height = lens.width / 2;
  const double pitch = kSensorWidth / lens.width;  // mm a pixel
  const double radius = round_to(8.75 * draws.between(0.98, 1.02), 1e4);
  const double distance = round_to(18.5 * draws.between(0.99, 1.01), 1e4);
  lens.scale = radius / pitch;
  lens.centre_x[kRight] = lens.width * 0.5 - distance / pitch * 0.5;
  lens.centre_x[kLeft] = lens.width * 0.5 + distance / pitch * 0.5;
  lens.centre_y = {lens.height * 0.5, lens.height * 0.5};
  double whole = 0.0;
  for (std::size_t i = 0; i < 4; ++i) {
    lens.coeff[i] = draws.between(-1.0, 1.0);
    whole += std::abs(lens.coeff[i]);
  }
  const double most = draws.between(0.0, kMostDistortion);
  for (double& c : lens.coeff) c = round_to(c * most / whole, 1e6);
  for (std::size_t side : {kRight, kLeft}) {
    lens.magnify_x[side] = round_to(draws.between(0.998, 1.002), 16384.0);
    lens.magnify_y[side] = round_to(draws.between(0.998, 1.002), 16384.0);
    for (std::size_t i = 0; i < 3; ++i)
      lens.pose[side * kEyeValues + i] = round_to(draws.between(-0.3, 0.3), 1e3) * kDegree;
    for (std::size_t i = 3; i < 5; ++i) {
      lens.pose[side * kEyeValues + i] =
          round_to(draws.between(-5.0, 5.0), 16.0) * lens.width / kReferenceWidth;
    }
  }
  lens.limit = lens.format == 1 ? 190.0 / 180.0 : 192.0 / 180.0;
  return lens;
}

std::string lens_text(const PlainLens& lens) {
  std::string text = "[OPTRA]\n";
  const auto put = [&](const std::string& key, double value) {
    text += fmt::format("{} = {:.17f};\n", key, value);
  };
  const auto put_size = [&](const char* key, int value) { text += fmt::format("{} = {};\n", key, value); };
  const double pitch = kSensorWidth / lens.width;
  const bool plain = lens.format == 1;
  text += plain ? "format_version = \"1.0\";\n" : "version = 2.31;\n";
  put_size(plain ? "input_width" : "PIX_input_width", lens.width);
  put_size(plain ? "input_height" : "PIX_input_height", lens.height);
  put_size("output_width", lens.width);
  put_size("output_height", lens.height);
  put("baseline", lens.baseline);
  for (std::size_t i = 0; i < lens.coeff.size(); ++i) {
    put(fmt::format("distortion_coeff{}", i + 1), lens.coeff[i]);
  }
  constexpr double kNanometres = 1e6;  // in a millimetre
  if (plain) {
    put_size("separate_x", lens.width / 2);
    put("sensor_pitch", pitch);
    put("inter_image_circle_distance", (lens.centre_x[kLeft] - lens.centre_x[kRight]) * pitch);
    put("image_circle_radius", lens.scale * pitch);
  } else {
    put("AOV_input_width", kSensorWidth * kNanometres);
    put("AOV_input_height", kSensorWidth / 2 * kNanometres);
    put("FOV", lens.limit * 180000.0);
    put("img_c_diameter", lens.scale * pitch * kNanometres * lens.limit * 2.0);
    put("left_img_c_center_X", (lens.centre_x[kLeft] - lens.width * 0.5) * pitch * kNanometres);
    put("right_img_c_center_X", (lens.centre_x[kRight] - lens.width * 0.5) * pitch * kNanometres);
    put("left_img_c_center_Y", 0.0);
    put("right_img_c_center_Y", 0.0);
  }
  const double angle_unit = plain ? 1.0 : 0.001 * kDegree;
  const double offset_unit = plain ? lens.width : 1.0 / (pitch * kNanometres);
  const double magnify_unit = plain ? 1.0 : 1.0 / 16384.0;
  for (std::size_t side : {kRight, kLeft}) {
    const std::string eye = side == kRight ? "right_eye_" : "left_eye_";
    const double* pose = &lens.pose[side * kEyeValues];
    put(eye + "lambda", pose[0] / angle_unit);
    put(eye + "psi", pose[1] / angle_unit);
    put(eye + "roll", pose[2] / angle_unit);
    put(eye + "x0", pose[3] / offset_unit);
    put(eye + "y0", pose[4] / offset_unit);
    put(eye + "magnify_v", lens.magnify_x[side] / magnify_unit);
    put(eye + "magnify_h", lens.magnify_y[side] / magnify_unit);
  }
  return text;
}

Case generate_case(const CaseSettings& settings, int index, const std::string& params) {
  Draws draws(settings.seed * 1000003 + static_cast<std::uint64_t>(index));
  Case one;
  one.lens = draw_lens(draws, index);
  one.truth = one.lens.pose;
  for (std::size_t side : {kRight, kLeft}) {
    for (std::size_t i = 0; i < kEyeValues; ++i) {
      const double most = i < 3 ? settings.angle_error_deg * kDegree
                                : settings.offset_error_px * one.lens.width / kReferenceWidth;
      one.truth[side * kEyeValues + i] += draws.between(-most, most);
    }
  }
  one.rig = read_back(one.lens);

  const cve::Size half = half_frame_size(one.rig);
  const auto unit = fpu::createFeatureUnit(params, half.cols, half.rows);
  if (!unit) throw std::runtime_error("the parameter file gives no raster");
  one.cells = unit->grid.numCells();

  // The golden ratio spreads any number of cases evenly.
  const double place = std::fmod(0.5 + index * 0.6180339887498949, 1.0);
  const double most = settings.most_matches;
  const int wanted =
      static_cast<int>(settings.fewest_matches * std::pow(most / settings.fewest_matches, place));
  MatchDraw match_draw(draws, settings, one, unit->grid);
  for (int tries = 0; match_draw.count() < wanted && tries < kDrawsPerMatch * wanted; ++tries)
    match_draw.add();
  one.matches = match_draw.ranked();
  one.name = fmt::format("rig{}", index);
  return one;
}

}  // namespace twintrue::accuracy

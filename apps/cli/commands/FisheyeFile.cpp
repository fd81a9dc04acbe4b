#include "apps/cli/commands/FisheyeFile.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"

namespace twintrue::cli {
namespace {

constexpr std::size_t kLargestFile = std::size_t{1} << 20;

class Reader {
 public:
  explicit Reader(const NamedPath& file) : where_(fmt::format("{}: {}", file.name, file.path.string())) {
    try {
      // JSON is YAML as well.
      root_ = YAML::Load(read_text_file(file, kLargestFile));
    } catch (const YAML::Exception& error) {
      throw Failure(ExitCode::kInputUnreadable,
                    Problem{fmt::format("{}:{}", where_, error.mark.line + 1), error.msg,
                            "YAML or JSON as OpenCV's FileStorage writes it",
                            "save the calibration under a name that ends in .yml or .json"});
    }
    if (!root_.IsMap()) {
      fail("no named values", "YAML or JSON as OpenCV's FileStorage writes it",
           "name the calibration's file");
    }
  }

  [[noreturn]] void fail(const std::string& found, const std::string& expected,
                         const std::string& remedy) const {
    throw Failure(ExitCode::kFileUnusable, Problem{where_, found, expected, remedy});
  }

  // The elements of the first matrix of these names.
  std::vector<double> matrix(std::initializer_list<const char*> names, std::size_t count,
                             const std::string& remedy) const {
    const std::string known = fmt::format("{}", fmt::join(names, ", "));
    for (const char* const name : names) {
      const YAML::Node node = root_[name];
      if (!node) continue;
      if (!node.IsMap() || !node["data"].IsSequence() || node["data"].size() != count) {
        const bool sized = node.IsMap() && node["data"].IsSequence();
        fail(sized ? fmt::format("{} with {} elements", name, node["data"].size())
                   : fmt::format("{}, which is no matrix", name),
             fmt::format("a matrix of {} elements", count), remedy);
      }
      std::vector<double> elements;
      for (const YAML::Node& element : node["data"]) elements.push_back(number(name, element));
      return elements;
    }
    fail(fmt::format("none of {}", known), "one of them", remedy);
  }

  std::optional<std::int32_t> whole(const char* name) const {
    const YAML::Node node = root_[name];
    if (!node) return std::nullopt;
    std::int32_t value = 0;
    if (!YAML::convert<std::int32_t>::decode(node, value)) {
      fail(fmt::format("{} that is no whole number", name), "a whole number", "correct it or take it out");
    }
    return value;
  }

 private:
  double number(const char* name, const YAML::Node& node) const {
    double value = 0.0;
    if (!node.IsScalar() || !YAML::convert<double>::decode(node, value) || !std::isfinite(value)) {
      fail(fmt::format("{} with an element that is no finite number", name), "finite numbers",
           "calibrate again: the fit has failed");
    }
    return value;
  }

  std::string where_;
  YAML::Node root_;
};

}  // namespace

FisheyeCalibration read_fisheye_calibration(const NamedPath& file) {
  constexpr double kNoSkew = 1e-9;  // of the focal length
  const std::string other_model =
      "give a calibration by OpenCV's fisheye module: other models have no place here";
  const Reader reader(file);
  if (reader.whole("fisheye_model").value_or(1) == 0) {
    reader.fail("fisheye_model: 0", "a fisheye calibration", other_model);
  }
  const std::vector<double> camera = reader.matrix({"camera_matrix", "cameraMatrix", "K"}, 9,
                                                   "store the camera matrix under one of these names");
  const std::vector<double> k = reader.matrix({"distortion_coefficients", "distCoeffs", "D"}, 4, other_model);
  FisheyeCalibration calibration;
  calibration.focal_x = camera[0];
  calibration.focal_y = camera[4];
  calibration.center_x = camera[2];
  calibration.center_y = camera[5];
  if (!(calibration.focal_x > 0.0) || !(calibration.focal_y > 0.0)) {
    reader.fail("a focal length that is not above 0", "a camera matrix", "calibrate again");
  }
  if (!(std::abs(camera[1]) <= kNoSkew * calibration.focal_x)) {
    reader.fail(fmt::format("a skew of {}", camera[1]), "0",
                "calibrate with CALIB_FIX_SKEW: lens files have none");
  }
  for (std::size_t i = 0; i < k.size(); ++i) calibration.k[i] = k[i];
  calibration.width = reader.whole("image_width");
  calibration.height = reader.whole("image_height");
  return calibration;
}

}  // namespace twintrue::cli

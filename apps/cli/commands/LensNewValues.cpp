#include "apps/cli/commands/LensNewValues.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <numbers>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/cli/Problem.h"
#include "apps/cli/commands/FisheyeFile.h"
#include "apps/cli/commands/InspectOutput.h"

namespace twintrue::cli {
namespace {

constexpr const char* kPlainProjection = "equidistant";

[[noreturn]] void fail(const std::string& where, const std::string& found, const std::string& expected,
                       const std::string& remedy) {
  throw Failure(ExitCode::kUsage, Problem{where, found, expected, remedy});
}

double finite_number(const std::string& option, std::string_view text) {
  const double number = parse_number(option, text);
  if (!std::isfinite(number))
    fail(option, fmt::format("`{}`", text), "a finite number", "write it in digits");
  return number;
}

// Numbers with commas between them, `most` at most and `least` at least.
std::vector<double> numbers(const std::string& option, const std::string& text, std::size_t least,
                            std::size_t most, const std::string& names) {
  std::vector<double> values;
  std::string_view rest = text;
  for (bool more = true; more;) {
    const std::size_t comma = rest.find(',');
    more = comma != std::string_view::npos;
    values.push_back(finite_number(option, rest.substr(0, comma)));
    if (more) rest.remove_prefix(comma + 1);
  }
  if (values.size() < least || values.size() > most) {
    fail(option, fmt::format("{} numbers", values.size()), fmt::format("{}, with commas between them", names),
         fmt::format("give {} {}", option, names));
  }
  return values;
}

// In metres.
double length(const std::string& option, const std::string& text) {
  constexpr std::array<std::pair<std::string_view, double>, 5> kUnits{
      {{"um", 1e-6}, {"mm", 1e-3}, {"cm", 1e-2}, {"in", 0.0254}, {"m", 1.0}}};
  const std::size_t unit = text.find_last_of("0123456789.") + 1;
  const auto* const found = std::find_if(kUnits.begin(), kUnits.end(),
                                         [&](const auto& known) { return known.first == text.substr(unit); });
  if (found == kUnits.end()) {
    fail(option, fmt::format("`{}`", text), "a number with its unit: um, mm, cm, m or in",
         fmt::format("write the unit behind the number, as in {} 60mm", option));
  }
  return finite_number(option, std::string_view(text).substr(0, unit)) * found->second;
}

void read_size(const std::string& text, FirstLensInput& input) {
  const char* const end = text.data() + text.size();
  const auto width = std::from_chars(text.data(), end, input.frame_width);
  const bool parted = width.ec == std::errc{} && width.ptr != end && (*width.ptr == 'x' || *width.ptr == 'X');
  const auto height = std::from_chars(parted ? width.ptr + 1 : end, end, input.frame_height);
  if (!parted || height.ec != std::errc{} || height.ptr != end) {
    fail("--size", fmt::format("`{}`", text), "width and height of the whole frame, both halves, in pixels",
         "write them with an x between them, as in --size 8192x4096");
  }
}

// One value of an eye, from its own option or from the one for both.
struct Choice {
  std::string option;
  const std::string* text = nullptr;
};

Choice choose(const std::string& name, const std::string& side, const std::optional<std::string>& own,
              const std::optional<std::string>& both) {
  const std::string own_name = fmt::format("{}-{}", name, side);
  if (own && both) {
    fail(own_name, fmt::format("{} as well", name), "one of the two",
         fmt::format("give {0} for both eyes, or {0}-left and {0}-right", name));
  }
  if (own) return {own_name, &*own};
  if (both) return {name, &*both};
  return {own_name, nullptr};
}

FisheyeKind kind_of(const std::string& projection) {
  if (projection == "equisolid") return FisheyeKind::kEquisolid;
  if (projection == "stereographic") return FisheyeKind::kStereographic;
  if (projection == "orthographic") return FisheyeKind::kOrthographic;
  return FisheyeKind::kEquidistant;
}

// Brings the options of one eye into the numbers of its lens.
class EyeReader {
 public:
  EyeReader(const LensNewArguments& arguments, const FirstLensInput& input, EyeSide side)
      : all_(arguments),
        input_(input),
        side_(side),
        name_(side == EyeSide::kLeft ? "left" : "right"),
        own_(side == EyeSide::kLeft ? arguments.left : arguments.right) {}

  FirstEye read() {
    const Choice file = choose("--opencv", name_, own_.opencv, all_.both.opencv);
    if (file.text != nullptr) {
      refuse_beside(file.option);
      read_file({file.option, *file.text});
      read_pose();
      return eye_;
    }
    read_curve();
    // The middle of the half, unless something else is told.
    set_centre((0.5 * input_.frame_width - 1.0) / 2.0 + half_begin(), (input_.frame_height - 1.0) / 2.0);
    read_centre();
    read_scale();
    read_pose();
    return eye_;
  }

 private:
  double half_begin() const { return side_ == EyeSide::kLeft ? 0.5 * input_.frame_width : 0.0; }

  void set_centre(double x, double y) {
    eye_.center_x = x;
    eye_.center_y = y;
  }

  // A centre as it was given, in the coordinates that it was given in.
  void set_given_centre(double x, double y) {
    const double zero = all_.pixel_zero == "corner" ? 0.5 : 0.0;
    set_centre(x - zero + (all_.coordinates == "half" ? half_begin() : 0.0), y - zero);
  }

  // A calibration's file holds all but the pose.
  void refuse_beside(const std::string& option) const {
    for (const LensNewEye* eye : {&own_, &all_.both}) {
      if (eye->circle || eye->focal || eye->centre || eye->fisheye_k || all_.diameter ||
          all_.projection != kPlainProjection) {
        fail(option, "a circle, centre, focal length or curve as well", "one of the two",
             "leave the others out: the file holds them all");
      }
    }
  }

  void read_file(const NamedPath& file) {
    const FisheyeCalibration found = read_fisheye_calibration(file);
    const auto is_size = [&](std::int32_t width) {
      return found.width.value_or(width) == width &&
             found.height.value_or(input_.frame_height) == input_.frame_height;
    };
    const auto length_of = [](const std::optional<std::int32_t>& length) {
      return length ? std::to_string(*length) : "?";
    };
    const bool of_half = is_size(input_.frame_width / 2);
    const bool of_frame = is_size(input_.frame_width);
    if (!of_half && !of_frame) {
      throw Failure(ExitCode::kFileUnusable,
                    Problem{fmt::format("{}: {}", file.name, file.path.string()),
                            fmt::format("a calibration of pictures of {} x {} pixels", length_of(found.width),
                                        length_of(found.height)),
                            fmt::format("{0} x {2}, a half of the frame, or {1} x {2}",
                                        input_.frame_width / 2, input_.frame_width, input_.frame_height),
                            "calibrate with pictures of the frame's size, neither scaled nor cut"});
    }
    // A file without a size counts as the options say.
    const bool in_half = of_half && of_frame ? all_.coordinates == "half" : of_half;
    if (!in_half && all_.both.opencv) {
      fail("--opencv", "one calibration for both eyes, counted in the whole frame",
           "a calibration of each eye",
           "add --coordinates half if it is one of a half, or give --opencv-left and --opencv-right");
    }
    set_centre(found.center_x + (in_half ? half_begin() : 0.0), found.center_y);
    eye_.focal_x = found.focal_x;
    eye_.focal_y = found.focal_y;
    eye_.curve = {FisheyeKind::kPolynomial, found.k};
  }

  void read_curve() {
    eye_.curve.kind = kind_of(all_.projection);
    const Choice k = choose("--fisheye-k", name_, own_.fisheye_k, all_.both.fisheye_k);
    if (k.text == nullptr) return;
    if (eye_.curve.kind != FisheyeKind::kEquidistant) {
      fail(k.option, fmt::format("--projection {} as well", all_.projection), "one of the two",
           "leave --projection out: k1 to k4 are the whole curve");
    }
    const std::vector<double> values = numbers(k.option, *k.text, 4, 4, "K1,K2,K3,K4");
    eye_.curve.kind = FisheyeKind::kPolynomial;
    for (std::size_t i = 0; i < values.size(); ++i) eye_.curve.k[i] = values[i];
  }

  void read_centre() {
    if (all_.both.centre && all_.coordinates != "half") {
      fail("--centre", "one centre for both eyes, counted in the whole frame", "a centre for each eye",
           "add --coordinates half if it counts in the halves, or give --centre-left and --centre-right");
    }
    const Choice centre = choose("--centre", name_, own_.centre, all_.both.centre);
    if (centre.text == nullptr) return;
    if (own_.circle) {
      fail(centre.option, fmt::format("--circle-{} as well", name_), "one of the two",
           "leave one out: the circle's centre is the image centre");
    }
    const std::vector<double> values = numbers(centre.option, *centre.text, 2, 2, "CX,CY");
    set_given_centre(values[0], values[1]);
  }

  void read_scale() {
    const Choice focal = choose("--focal", name_, own_.focal, all_.both.focal);
    if ((own_.circle ? 1 : 0) + (all_.diameter ? 1 : 0) + (focal.text != nullptr ? 1 : 0) != 1) {
      fail(fmt::format("the {} eye's scale", name_),
           own_.circle || all_.diameter ? "more than one of its options" : "none of its options",
           fmt::format("one of --circle-{0}, --diameter, --focal, --focal-{0} and --opencv-{0}", name_),
           "measure the circle that --fov degrees fill, or take the focal length of a calibration");
    }
    if (focal.text != nullptr) {
      const std::vector<double> values = numbers(focal.option, *focal.text, 1, 2, "F or FX,FY");
      eye_.focal_x = values.front();
      eye_.focal_y = values.back();
      for (const double value : values) {
        if (!(value > 0.0)) fail(focal.option, fmt::format("{}", value), "above 0", "give it in pixels");
      }
      return;
    }
    if (own_.circle) {
      const std::string option = fmt::format("--circle-{}", name_);
      const std::vector<double> values = numbers(option, *own_.circle, 3, 3, "CX,CY,DIAMETER");
      set_given_centre(values[0], values[1]);
      set_diameter(option, values[2]);
    } else {
      set_diameter("--diameter", finite_number("--diameter", *all_.diameter));
    }
  }

  // A circle of which the half shows nothing was not measured there.
  void set_diameter(const std::string& option, double diameter) {
    const double right = half_begin() + 0.5 * input_.frame_width;
    const double farthest = std::hypot(std::max(eye_.center_x - half_begin(), right - eye_.center_x),
                                       std::max(eye_.center_y, input_.frame_height - eye_.center_y));
    if (!(diameter > 0.0 && 0.5 * diameter < farthest)) {
      fail(option, fmt::format("a diameter of {} pixels", diameter),
           fmt::format(
               "above 0 and below {:.0f}, so that the {} eye's half of the frame shows some of the circle",
               2.0 * farthest, name_),
           "give the diameter, not the radius, in pixels of the frame of --size; of a lens whose circle lies "
           "all outside give --focal");
    }
    eye_.focal_x = eye_.focal_y = focal_of_circle(eye_.curve, diameter, input_.fov_degrees);
  }

  void read_pose() {
    if (!own_.pose) return;
    constexpr double kDegree = std::numbers::pi / 180.0;
    const std::vector<double> values =
        numbers(fmt::format("--pose-{}", name_), *own_.pose, 3, 3, "PAN,TILT,ROLL");
    eye_.pan = values[0] * kDegree;
    eye_.tilt = values[1] * kDegree;
    eye_.roll = values[2] * kDegree;
  }

  const LensNewArguments& all_;
  const FirstLensInput& input_;
  EyeSide side_;
  std::string name_;
  const LensNewEye& own_;
  FirstEye eye_;
};

}  // namespace

FirstLensInput first_lens_input(const LensNewArguments& arguments) {
  FirstLensInput input;
  input.format = arguments.format == 1 ? LensFormat::k1 : LensFormat::k2;
  read_size(arguments.size, input);
  input.fov_degrees = finite_number("--fov", arguments.fov);
  input.baseline = length("--baseline", arguments.baseline);
  input.sensor_pitch = 1000.0 * length("--pixel-pitch", arguments.pixel_pitch);
  for (const auto& [option, value] :
       {std::pair{"--baseline", input.baseline}, std::pair{"--pixel-pitch", input.sensor_pitch},
        std::pair{"--fov", input.fov_degrees}}) {
    if (!(value > 0.0)) fail(option, "0 or below", "above 0", "give what was measured");
  }
  input.left = EyeReader(arguments, input, EyeSide::kLeft).read();
  input.right = EyeReader(arguments, input, EyeSide::kRight).read();
  return input;
}

}  // namespace twintrue::cli

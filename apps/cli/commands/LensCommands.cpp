#include "apps/cli/commands/LensCommands.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "apps/cli/commands/LensNew.h"

namespace twintrue::cli {
namespace {

constexpr const char* kLensNewFooter =
    "Left and right are EYES: the optics cross their pictures, so that the left eye's lies in the right "
    "half\n"
    "of the frame and the right eye's in the left half. A centre in the wrong half is refused.\n"
    "\n"
    "  twintrue lens new --size 8192x4096 --fov 190 --diameter 3600 --baseline 60mm -o first.lens\n"
    "  twintrue lens new --size 8192x4096 --fov 190 --circle-left 6140,2050,3602 \\\n"
    "      --circle-right 2051,2046,3598 --projection equisolid -o first.lens\n"
    "  twintrue lens new --size 8192x4096 --fov 180 --coordinates half --focal 1140.2,1140.6 \\\n"
    "      --centre 2047.1,2049.8 --fisheye-k 0.021,-0.004,0.0007,0 -o first.lens\n"
    "\n"
    "Exit codes: 0 written, 2 values that can't be used or make no lens file, 1 output that can't be "
    "written.\n";

void add_eye(CLI::App& app, const std::string& side, LensNewEye& eye) {
  const std::string of_eye = " of the " + side + " eye's picture";
  app.add_option("--circle-" + side, eye.circle, "Centre and diameter, in pixels," + of_eye)
      ->type_name("CX,CY,DIAMETER");
  app.add_option("--centre-" + side, eye.centre, "Image centre, in pixels," + of_eye)->type_name("CX,CY");
  app.add_option("--focal-" + side, eye.focal, "Focal length, in pixels," + of_eye)->type_name("F[,FY]");
  app.add_option("--fisheye-k-" + side, eye.fisheye_k, "As --fisheye-k," + of_eye)->type_name("K1,K2,K3,K4");
  app.add_option("--opencv-" + side, eye.opencv, "As --opencv," + of_eye)->type_name("FILE");
  app.add_option("--pose-" + side, eye.pose,
                 "Where the " + side + " eye looks, in degrees: to the right, down, clockwise from behind")
      ->type_name("PAN,TILT,ROLL");
}

void add_both(CLI::App& app, LensNewArguments& arguments) {
  app.add_option("--diameter", arguments.diameter, "Diameter, in pixels, of both circles of --fov degrees")
      ->type_name("PIXELS");
  app.add_option("--centre", arguments.both.centre,
                 "Image centre of both eyes, with --coordinates half (default: the middle of each half)")
      ->type_name("CX,CY");
  app.add_option("--focal", arguments.both.focal, "Focal length, in pixels, of both eyes, along x and y")
      ->type_name("F[,FY]");
  app.add_option(
         "--fisheye-k", arguments.both.fisheye_k,
         "Both eyes' curve as OpenCV's fisheye module fits it: theta (1 + k1 theta^2 + k2 theta^4 + ...)")
      ->type_name("K1,K2,K3,K4");
  app.add_option("--opencv", arguments.both.opencv,
                 "Fisheye calibration of both eyes, as OpenCV's FileStorage writes it, YAML or JSON: "
                 "camera_matrix (or K) and distortion_coefficients (or D). Its image_width tells whether it "
                 "counts in a half or in the frame")
      ->type_name("FILE");
}

void add_conventions(CLI::App& app, LensNewArguments& arguments) {
  app.add_option("--projection", arguments.projection, "Curve of a lens without --fisheye-k")
      ->check(CLI::IsMember({"equidistant", "equisolid", "stereographic", "orthographic"}))
      ->capture_default_str()
      ->type_name("NAME");
  app.add_option("--coordinates", arguments.coordinates,
                 "Where centres are counted from: the upper left corner of the whole frame, or of the half "
                 "that holds the eye's picture")
      ->check(CLI::IsMember({"frame", "half"}))
      ->capture_default_str()
      ->type_name("WHERE");
  app.add_option("--pixel-zero", arguments.pixel_zero,
                 "What (0, 0) is: the centre of the first pixel, as in OpenCV, or its upper left corner")
      ->check(CLI::IsMember({"centre", "corner"}))
      ->capture_default_str()
      ->type_name("WHERE");
  app.add_option("--pixel-pitch", arguments.pixel_pitch,
                 "Size of a pixel, for the lengths on the sensor; where pixels lie does not depend on it")
      ->capture_default_str()
      ->type_name("LENGTH");
  app.add_option("--format", arguments.format,
                 "Lens file format: 2 holds the field of view and unequal eyes, 1 neither of them exactly")
      ->check(CLI::IsMember({1, 2}))
      ->capture_default_str()
      ->type_name("");
}

void add_lens_new(CLI::App& group, ExitCode* code) {
  CLI::App* const app = group.add_subcommand(
      "new",
      "Write a first lens file from circles or from a fisheye calibration, and tell how well it follows");
  const auto arguments = std::make_shared<LensNewArguments>();
  app->add_option("--size", arguments->size, "Size of the whole frame, both halves, in pixels")
      ->required()
      ->type_name("WIDTHxHEIGHT");
  app->add_option("--fov", arguments->fov,
                  "Full field of view: the angle that a circle's diameter spans, and where rays end")
      ->required()
      ->type_name("DEGREES");
  app->add_option("--baseline", arguments->baseline, "Distance of the eyes, with its unit")
      ->capture_default_str()
      ->type_name("LENGTH");
  add_both(*app, *arguments);
  add_eye(*app, "left", arguments->left);
  add_eye(*app, "right", arguments->right);
  add_conventions(*app, *arguments);
  app->add_option("-o,--out", arguments->out, "Write the lens file here (default: standard output)")
      ->type_name("OUT_LENS");
  app->footer(kLensNewFooter);
  app->callback([arguments, code] {
    lens_new(*arguments);
    *code = ExitCode::kCalibrated;
  });
}

}  // namespace

void add_lens_commands(CLI::App& program, ExitCode* code) {
  CLI::App* const group = program.add_subcommand("lens", "Lens files");
  group->require_subcommand(1);
  add_lens_new(*group, code);
}

}  // namespace twintrue::cli

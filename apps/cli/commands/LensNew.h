#pragma once

#include <optional>
#include <string>

namespace twintrue::cli {

// Values as the command line has them. "Left" and "right" are eyes.
struct LensNewEye {
  std::optional<std::string> circle;     // CX,CY,DIAMETER
  std::optional<std::string> focal;      // F or FX,FY
  std::optional<std::string> centre;     // CX,CY
  std::optional<std::string> fisheye_k;  // K1,K2,K3,K4
  std::optional<std::string> pose;       // PAN,TILT,ROLL, degrees
  std::optional<std::string> opencv;     // a file that holds all but the circle and the pose
};

struct LensNewArguments {
  std::string size;  // WIDTHxHEIGHT
  std::string fov;   // degrees
  std::string baseline = "60mm";
  std::string pixel_pitch = "4.4um";
  std::optional<std::string> diameter;  // of both circles
  LensNewEye both;                      // its circle and pose stay empty
  LensNewEye left;
  LensNewEye right;
  std::string projection = "equidistant";
  std::string coordinates = "frame";
  std::string pixel_zero = "centre";
  int format = 2;
  std::optional<std::string> out;
};

// `lens new`: a first lens file from what is known of a lens, to a file or to standard output. Tells on
// standard output, or in comments of the file, how well its curve follows the one that was given. Throws
// Failure.
void lens_new(const LensNewArguments& arguments);

}  // namespace twintrue::cli

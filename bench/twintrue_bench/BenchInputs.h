#pragma once

// What the benchmarks work on: a rendered frame, scaled to the width asked for, and what the stages before
// make of it with the default preset.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "apps/TwinTrue/RunDriver.h"
#include "features/FeatureUnit.h"
#include "imaging/XMat.h"
#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"

namespace twintrue::bench {

struct Picture {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> bytes;  // red, green, blue; packed rows

  CalibImage image() const { return {width, height, static_cast<std::int32_t>(3 * width), bytes.data(), 0}; }
};

// Frame, lens file and settings of one width. The lens file is a temporary one, scaled like the frame.
class BenchFrame {
 public:
  // The same object for the same width, made on first use; lives as long as the process. 2048, 4096, 8192.
  static const BenchFrame& of_width(int width);

  const Picture& picture() const { return picture_; }
  const std::string& lens_path() const { return lens_path_; }
  const std::string& params_path() const { return params_path_; }

 private:
  explicit BenchFrame(int width);

  Picture picture_;
  std::string lens_path_;
  std::string params_path_;
};

// The stages up to the search, run once.
class BenchRun {
 public:
  static BenchRun& of_width(int width);

  cve::XMat_<float> frame;
  RigState rig;
  std::unique_ptr<fpu::FeatureUnit> unit;
  HalfFrames halves;
  std::unique_ptr<fpu::FeatureFrame> left, right;
  std::vector<RayMatch> matches;  // accepted, as matching left them
  std::unique_ptr<CalibContext> context;

 private:
  explicit BenchRun(int width);
};

}  // namespace twintrue::bench

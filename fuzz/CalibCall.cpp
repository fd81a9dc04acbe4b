// The exported function as a host calls it: any frame, any lens file, any settings but those that end the
// process. The input is a header, the lens file's additions, a NUL, the settings' additions, and behind
// another NUL what seeds the pixels. Frames lie in memory of exactly their size.

#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include "LegalSettings.h"
#include "LensTexts.h"
#include "Support.h"
#include "lens/LensParameters.h"
#include "twintrue/calib.h"

namespace {

using fuzzing::require;

constexpr std::int32_t kMostPixels = 320;  // each way

// A frame and the bytes that its record speaks of, to the byte.
struct Frame {
  CalibImage image;
  std::unique_ptr<std::uint8_t[]> bytes;
};

// Grains of a few sizes: enough corners for the detector. `shift` moves the right half's picture.
std::uint8_t grain(std::uint32_t x, std::uint32_t y, std::uint32_t seed) {
  std::uint32_t sum = 0;
  for (const std::uint32_t size : {3u, 7u, 13u}) {
    std::uint32_t h = (x / size) * 73856093u ^ (y / size) * 19349663u ^ seed * 83492791u ^ size;
    h = (h ^ (h >> 13)) * 1274126177u;
    sum += (h ^ (h >> 16)) & 255u;
  }
  return static_cast<std::uint8_t>(sum / 3);
}

Frame make_frame(std::uint32_t width, std::uint32_t height, std::uint32_t padding, bool bottom_up,
                 std::uint32_t seed) {
  const std::uint32_t row = 3 * width;
  const std::uint32_t stride = row + padding;
  const std::size_t size = height == 0 ? 0 : std::size_t{stride} * (height - 1) + row;
  Frame frame{{}, std::make_unique<std::uint8_t[]>(size)};
  const std::uint32_t half = width / 2 == 0 ? 1 : width / 2;
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < row; ++x) {
      frame.bytes[std::size_t{y} * stride + x] =
          grain((x / 3) % half + (x / 3 < half ? seed % 5 : 0), y, seed / 8);
    }
  }
  const auto step = static_cast<std::int32_t>(stride);
  const std::uint8_t* first = frame.bytes.get();
  if (bottom_up && height > 0) first += std::size_t{stride} * (height - 1);
  frame.image = {width, height, bottom_up ? -step : step, first, 0};
  return frame;
}

bool lens_is_small(const std::string& path) {
  if (!fuzzing::has_small_table(path)) return false;
  twintrue::RigState rig;
  try {
    if (twintrue::load_lens_description(rig, path, "OPTRA") == 0) return true;
  } catch (const twintrue::LensModelError&) {
    return true;
  }
  return rig.frame_width <= 2 * kMostPixels && rig.frame_height <= kMostPixels;
}

bool is_status(std::int32_t status) {
  return status == TWINTRUE_CALIBRATED || status == TWINTRUE_FAILED || status == TWINTRUE_LENS_UNREADABLE ||
         status == TWINTRUE_QUALITY_FAILED || status == TWINTRUE_TOO_FEW_MATCHES;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::MemoryFile lens;
  static const fuzzing::MemoryFile settings;
  static const fuzzing::MemoryFile output;
  fuzzing::Input input(data, size);
  const unsigned form = input.pick(255);
  const auto lens_width = static_cast<std::int32_t>(16 * (input.pick(31) + 1));
  const auto lens_height = static_cast<std::int32_t>(16 * (input.pick(15) + 1));
  const std::uint32_t width = input.take<std::uint16_t>() % (2 * kMostPixels);
  const std::uint32_t height = input.take<std::uint16_t>() % kMostPixels;
  const std::uint32_t padding = input.pick(64);
  // Half of the frames are of the size that the lens file states.
  const bool fits = form % 2 == 0;

  std::string lens_text;
  if (form & 2) {
    lens_text = fuzzing::lens_of_format_2(lens_width, lens_height);
  } else if (form & 4 || fits) {
    lens_text = fuzzing::lens_of_format_1(lens_width, lens_height);
  }
  lens_text += input.take_until('\0');
  std::string text = form & 8 ? "" : fuzzing::small_settings();
  text += input.take_until('\0');
  const auto seed = input.take<std::uint32_t>();
  const Frame frame =
      make_frame(fits ? static_cast<std::uint32_t>(lens_width) : width,
                 fits ? static_cast<std::uint32_t>(lens_height) : height, padding, (form & 16) != 0, seed);
  CalibImage image = frame.image;
  image.bgr_order = form & 32 ? 1 : 0;

  lens.write(lens_text);
  settings.write(fuzzing::legal_settings(text));
  if (!lens_is_small(lens.path()) || !fuzzing::settings_are_legal(settings.path())) return 0;
  twintrue::RigState rig;
  std::int32_t frame_width = 0;
  try {
    twintrue::load_lens_description(rig, lens.path(), "OPTRA");
    frame_width = rig.frame_width;
  } catch (const twintrue::LensModelError&) {
  }
  if (!fuzzing::search_is_small(settings.path(), frame_width)) return 0;

  output.write("");
  const int ignore = form & 64 ? 0 : 1;
  const char* const out = form & 128 ? output.path().c_str() : "";
  CalibResult result;
  std::memset(&result, 0x55, sizeof result);
  const std::int32_t status =
      calib(&image, lens.path().c_str(), settings.path().c_str(), out, ignore, &result);
  require(is_status(status), "a status is one of the five");
  // The frame is readable, so the record is always filled.
  require(result.right_roll == 0.0 || std::abs(result.right_roll) < 1e300 || std::isnan(result.right_roll) ||
              std::isinf(result.right_roll),
          "the result is filled");
  if (status == TWINTRUE_FAILED || status == TWINTRUE_LENS_UNREADABLE) {
    require(result.score == -1.0 && result.left_pan == 0.0,
            "a run that failed early leaves the starting values");
  }
  if (status == TWINTRUE_CALIBRATED) {
    require(result.error16 >= 0.0 && result.quality > 0.0, "a success has its numbers");
  }
  return 0;
}

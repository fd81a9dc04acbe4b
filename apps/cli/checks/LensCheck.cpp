#include "apps/cli/checks/LensCheck.h"

#include <fmt/format.h>

#include <exception>
#include <optional>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"
#include "lens/LensParameters.h"

namespace twintrue::cli {
namespace {

constexpr std::size_t kLargestLens = std::size_t{4} << 20;  // as the reader of the library has it
constexpr std::size_t kMostQuoted =
    2000;  // bytes of the reader's messages; a broken file may cause thousands

struct LensReading {
  std::optional<LensFacts> facts;
  bool has_format = false;  // whether there was a lens to read, usable or not
  std::string messages;
};

// Without a magnification no pixel of an eye has a ray.
bool has_rays(const RigModel& rig) {
  const auto sees = [](const EyeModel& eye) { return eye.magnify_v > 0.0 && eye.magnify_h > 0.0; };
  return sees(rig.left) && sees(rig.right);
}

LensReading read_lens(const std::string& path) {
  LensReading reading;
  ChatterCapture chatter(ChatterCapture::Streams::kOutputAndErrors);
  std::string thrown;
  try {
    RigState rig;
    reading.has_format = load_lens_description(rig, path, kLensSection) != 0;
    if (reading.has_format && rig_is_usable(rig)) {
      reading.facts = LensFacts{rig.current.right.distortion.kind,
                                rig.frame_width,
                                rig.frame_height,
                                rig.half_width,
                                rig.circle_radius_px,
                                has_rays(rig.current)};
    }
  } catch (const std::exception& error) {
    thrown = error.what();
  }
  reading.messages = chatter.finish() + thrown;
  return reading;
}

std::string quoted(std::string messages) {
  while (!messages.empty() && (messages.back() == '\n' || messages.back() == ' ')) messages.pop_back();
  if (messages.size() > kMostQuoted) messages = messages.substr(0, kMostQuoted) + "\n...";
  return messages;
}

}  // namespace

LensFacts check_lens(const std::string& path) {
  // Nothing larger can be a lens file, and reading it would only fill the memory.
  read_text_file({"LENS", path}, kLargestLens);
  const LensReading reading = read_lens(path);
  if (reading.facts && !reading.facts->has_rays) {
    throw Failure(
        ExitCode::kFileUnusable,
        Problem{fmt::format("LENS: {}", path), "an eye without magnification, so no pixel of it has a ray",
                "right_eye_magnify_v, right_eye_magnify_h, left_eye_magnify_v and left_eye_magnify_h above 0 "
                "(format 1: about 1; format 2: about 16384)",
                "write the keys that are missing or misspelt: `twintrue inspect lens-text` lists what was "
                "read"});
  }
  if (reading.facts) return *reading.facts;
  const std::string messages = quoted(reading.messages);
  if (reading.has_format && messages.empty()) {
    throw Failure(
        ExitCode::kFileUnusable,
        Problem{fmt::format("LENS: {}", path), "a lens with lengths that are 0 or no finite number",
                "a frame of 1 to 65536 pixels a side, and FOV, img_c_diameter, AOV_input_width above 0",
                "look for keys that are missing or misspelt: `twintrue inspect lens-text` lists what "
                "was read"});
  }
  throw Failure(
      ExitCode::kFileUnusable,
      Problem{fmt::format("LENS: {}", path),
              messages.empty() ? "no lens: a section [OPTRA] with a version that is known is missing"
                               : fmt::format("no usable lens. The reader said:\n{}", messages),
              "a lens file with a section [OPTRA] and\n"
              "format_version = \"1.0\"; (or version = 2.31;), a frame size and the lens's numbers",
              "correct the lines named above, or take the lens file that came with the lens"});
}

std::optional<std::string> check_frame_size(const LensFacts& lens, const std::string& lens_path,
                                            std::uint32_t width, std::uint32_t height) {
  const auto lens_width = static_cast<std::uint32_t>(lens.frame_width);
  const auto lens_height = static_cast<std::uint32_t>(lens.frame_height);
  if (width < lens_width || height < lens_height) {
    throw Failure(
        ExitCode::kFileUnusable,
        Problem{fmt::format("LENS: {}", lens_path),
                fmt::format("a frame of {} x {} pixels, smaller than the lens file says", width, height),
                fmt::format("at least {} x {} pixels", lens.frame_width, lens.frame_height),
                "give the frame as captured, not scaled or cut, or the lens file for this frame size"});
  }
  if (width == lens_width && height == lens_height) return std::nullopt;
  return fmt::format(
      "The frame of {} x {} pixels is larger than the lens file says: only {} x {} pixels from its upper "
      "left "
      "corner are looked at. Give the frame as captured, or the lens file for this frame size.",
      width, height, lens_width, lens_height);
}

bool is_whole_lens(const std::string& path, const LensFacts& original) {
  const LensReading reading = read_lens(path);
  return reading.facts && reading.facts->frame_width == original.frame_width &&
         reading.facts->frame_height == original.frame_height;
}

}  // namespace twintrue::cli

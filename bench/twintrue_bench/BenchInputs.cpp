#include "BenchInputs.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <fmt/format.h>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "matching/MatchPipeline.h"
#include "search/MatchFiltering.h"

namespace twintrue::bench {
namespace {

namespace fs = std::filesystem;

struct Source {
  std::string frame;
  std::string lens;
};

// The large rendered frame where it is at hand, else the one that ships with the project.
Source source() {
  const fs::path large = TWINTRUE_FRAME_FOLDER;
  if (!large.empty() && fs::exists(large / "frame.png"))
    return {(large / "frame.png").string(), (large / "nominal.lens").string()};
  const fs::path example = TWINTRUE_EXAMPLE_FOLDER;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(example)) {
    const fs::path lens = entry.path().parent_path() / "nominal.lens";
    const bool is_picture = entry.path().extension() == ".jpg" || entry.path().extension() == ".png";
    if (is_picture && fs::exists(lens)) return {entry.path().string(), lens.string()};
  }
  throw std::runtime_error("no frame to measure on");
}

Picture read_scaled(const std::string& path, int width) {
  OIIO::ImageBuf buffer(path);
  const int height = width / 2;
  const OIIO::ImageBuf scaled =
      buffer.spec().width == width
          ? buffer
          : OIIO::ImageBufAlgo::resize(buffer, "", 0, OIIO::ROI(0, width, 0, height));
  Picture picture;
  picture.width = static_cast<std::uint32_t>(width);
  picture.height = static_cast<std::uint32_t>(height);
  picture.bytes.resize(std::size_t{3} * picture.width * picture.height);
  if (!scaled.get_pixels(OIIO::ROI(0, width, 0, height, 0, 1, 0, 3), OIIO::TypeDesc::UINT8,
                         picture.bytes.data())) {
    throw std::runtime_error(scaled.geterror());
  }
  return picture;
}

// The lens file with its pixel sizes scaled; the pitch shrinks as the pixels get more.
std::string scaled_lens(const std::string& path, int width) {
  std::istringstream lines([&] {
    std::ifstream stream(path);
    return std::string(std::istreambuf_iterator<char>(stream), {});
  }());
  double factor = 1.0;
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find(" = ");
    const std::string key = line.substr(0, equals);
    const auto number = [&] { return std::stod(line.substr(equals + 3)); };
    if (key == "input_width") factor = width / number();
    if (key == "input_width" || key == "input_height" || key == "output_width" || key == "output_height" ||
        key == "separate_x") {
      line = fmt::format("{} = {};", key, static_cast<int>(number() * factor));
    }
    if (key == "sensor_pitch") line = fmt::format("{} = {:.10f};", key, number() / factor);
    text += line + "\n";
  }
  return text;
}

// A folder that goes at the end of the process.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (fs::temp_directory_path() / "twintrue-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

}  // namespace

BenchFrame::BenchFrame(int width) : params_path_(TWINTRUE_PRESET) {
  static const ScratchFolder scratch;
  const Source from = source();
  picture_ = read_scaled(from.frame, width);
  lens_path_ = (scratch.path() / fmt::format("{}.lens", width)).string();
  std::ofstream(lens_path_) << scaled_lens(from.lens, width);
}

const BenchFrame& BenchFrame::of_width(int width) {
  static std::map<int, std::unique_ptr<BenchFrame>> frames;
  auto& frame = frames[width];
  if (!frame) frame.reset(new BenchFrame(width));
  return *frame;
}

BenchRun::BenchRun(int width) {
  const BenchFrame& source_frame = BenchFrame::of_width(width);
  convert_frame(frame, source_frame.picture().image());
  if (!read_lens(rig, source_frame.lens_path())) throw std::runtime_error("no lens");
  const cve::Size size = half_frame_size(rig);
  unit = fpu::createFeatureUnit(source_frame.params_path(), size.cols, size.rows);
  if (!unit) throw std::runtime_error("unusable settings");
  halves = half_frames(frame, rig);
  left = std::make_unique<fpu::FeatureFrame>(*unit);
  right = std::make_unique<fpu::FeatureFrame>(*unit);
  detect_half(halves.left, *left);
  detect_half(halves.right, *right);
  fpu::MatchSet set = make_match_set(*unit);
  fpu::match_frames(*left, *right, &set, false);
  matches = accepted_matches(set);
  context = std::make_unique<CalibContext>();
  if (!load_calib_settings(*context, source_frame.params_path(), rig.frame_width)) {
    throw std::runtime_error("unusable settings");
  }
}

BenchRun& BenchRun::of_width(int width) {
  static std::map<int, std::unique_ptr<BenchRun>> runs;
  auto& run = runs[width];
  if (!run) run.reset(new BenchRun(width));
  return *run;
}

}  // namespace twintrue::bench

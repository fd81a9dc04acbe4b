#include "FrameRun.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>

#include <OpenImageIO/imageio.h>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/TwinTrue/RunDriver.h"
#include "refine/CodedPicture.h"

namespace twintrue::refine_bench {
namespace {

class Keeper final : public RunObserver {
 public:
  explicit Keeper(FrameRun& run) : run_(run) {}
  void on_searched(const CalibContext&, const RigState&, const std::vector<RayMatch>& matches,
                   const CalibResult&) override {
    run_.matches = matches;
  }

 private:
  FrameRun& run_;
};

bool recall(const std::filesystem::path& path, FrameRun& run) {
  std::ifstream file(path, std::ios::binary);
  std::uint64_t count = 0;
  file.read(reinterpret_cast<char*>(&run.found), sizeof run.found);
  file.read(reinterpret_cast<char*>(&run.status), sizeof run.status);
  file.read(reinterpret_cast<char*>(&count), sizeof count);
  if (!file) return false;
  run.matches.resize(count);
  file.read(reinterpret_cast<char*>(run.matches.data()),
            static_cast<std::streamsize>(count * sizeof(RayMatch)));
  return static_cast<bool>(file);
}

void remember(const std::filesystem::path& path, const FrameRun& run) {
  std::ofstream file(path, std::ios::binary);
  const std::uint64_t count = run.matches.size();
  file.write(reinterpret_cast<const char*>(&run.found), sizeof run.found);
  file.write(reinterpret_cast<const char*>(&run.status), sizeof run.status);
  file.write(reinterpret_cast<const char*>(&count), sizeof count);
  file.write(reinterpret_cast<const char*>(run.matches.data()),
             static_cast<std::streamsize>(count * sizeof(RayMatch)));
}

}  // namespace

double seconds_now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Pixels read_pixels(const std::filesystem::path& path) {
  const auto file = OIIO::ImageInput::open(path.string());
  if (!file) throw std::runtime_error(OIIO::geterror());
  const OIIO::ImageSpec& spec = file->spec();
  Pixels pixels{spec.width, spec.height, {}};
  pixels.bytes.resize(static_cast<std::size_t>(spec.width) * static_cast<std::size_t>(spec.height) * 3);
  if (spec.nchannels < 3 || !file->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.bytes.data())) {
    throw std::runtime_error("can't read colours from " + path.string());
  }
  return pixels;
}

RigState read_rig(const std::filesystem::path& path) {
  RigState rig;
  if (!read_lens(rig, path.string())) throw std::runtime_error("no lens in " + path.string());
  return rig;
}

FrameRun run_frame(const Pixels& pixels, const std::filesystem::path& lens, const std::string& params,
                   const std::filesystem::path& memory) {
  FrameRun run;
  run.rig = read_rig(lens);
  cve::XMat_<float> frame;
  convert_frame(frame, {static_cast<std::uint32_t>(pixels.width), static_cast<std::uint32_t>(pixels.height),
                        3 * pixels.width, pixels.bytes.data(), 0});
  run.linear = frame;
  run.found = starting_result();
  if (!memory.empty() && recall(memory, run)) return run;
  Keeper keeper(run);
  const double start = seconds_now();
  run.status = run_driver(frame, RunPaths{lens.string(), params, ""}, true, run.found, &keeper);
  run.search_seconds = seconds_now() - start;
  if (!memory.empty()) remember(memory, run);
  return run;
}

CodedHalves code_halves(const cve::XMat_<float>& linear, const RigState& rig) {
  const cve::Size size = half_frame_size(rig);
  const cve::XMat_<std::int16_t> coded = code_picture(linear);
  if (coded.cols < rig.half_width + size.cols || coded.rows < size.rows) {
    throw std::runtime_error("the frame is smaller than the lens file says");
  }
  return {coded.view(0, 0, size.cols, size.rows), coded.view(rig.half_width, 0, size.cols, size.rows),
          rig.half_width};
}

}  // namespace twintrue::refine_bench

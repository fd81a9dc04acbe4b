#include "FrameCase.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "RigLens.h"
#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/TwinTrue/RunDriver.h"
#include "matching/MatchPipeline.h"

namespace twintrue::accuracy {
namespace {

cve::XMat_<float> read_picture(const std::filesystem::path& path) {
  const auto file = OIIO::ImageInput::open(path.string());
  if (!file) throw std::runtime_error(OIIO::geterror());
  const OIIO::ImageSpec& spec = file->spec();
  constexpr int kChannels = 3;
  if (spec.nchannels < kChannels) throw std::runtime_error(path.string() + " has no colours");
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(spec.width) *
                                   static_cast<std::size_t>(spec.height) * kChannels);
  if (!file->read_image(0, 0, 0, kChannels, OIIO::TypeDesc::UINT8, pixels.data())) {
    throw std::runtime_error(file->geterror());
  }
  cve::XMat_<float> frame;
  convert_frame(frame, {static_cast<std::uint32_t>(spec.width), static_cast<std::uint32_t>(spec.height),
                        kChannels * spec.width, pixels.data(), 0});
  return frame;
}

RigState read_rig(const std::filesystem::path& path) {
  RigState rig;
  if (!read_lens(rig, path.string())) throw std::runtime_error("no lens in " + path.string());
  return rig;
}

}  // namespace

Case frame_case(const std::filesystem::path& folder, const std::string& params) {
  Case one;
  one.name = folder.filename().string();
  one.rig = read_rig(folder / "nominal.lens");
  one.lens = plain_lens(one.rig);
  one.truth = plain_lens(read_rig(folder / "truth.lens")).pose;

  cve::XMat_<float> frame = read_picture(folder / "frame.png");
  const cve::Size size = half_frame_size(one.rig);
  const std::unique_ptr<fpu::FeatureUnit> unit = fpu::createFeatureUnit(params, size.cols, size.rows);
  if (!unit) throw std::runtime_error("the parameter file makes no detector");
  const HalfFrames halves = half_frames(frame, one.rig);
  fpu::FeatureFrame left(*unit);
  fpu::FeatureFrame right(*unit);
  fpu::MatchSet set = make_match_set(*unit);
  detect_half(halves.left, left);
  detect_half(halves.right, right);
  if (fpu::match_frames(left, right, &set, false) > 0) one.matches = accepted_matches(set);
  one.cells = unit->grid.numCells();
  return one;
}

}  // namespace twintrue::accuracy

#include "apps/cli/commands/View.h"

#include <fmt/format.h>

#include <cstddef>
#include <iostream>
#include <memory>
#include <vector>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/OutputFile.h"
#include "apps/cli/PictureFiles.h"
#include "apps/cli/SignalsHeld.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/commands/ViewPlan.h"
#include "apps/cli/pictures/EncodedPictures.h"
#include "base/ThreadTeam.h"
#include "lens/LensParameters.h"

namespace twintrue::cli {
namespace {

constexpr int kBlinkMilliseconds = 500;  // long enough to look, short enough to see what jumps

struct Picture {
  render::Window size;
  render::SampleType type;
  render::Light light;
  std::vector<std::byte> samples;

  std::size_t row_bytes() const { return static_cast<std::size_t>(size.width) * 3 * bytes_of(type); }
  render::PictureRoom room() { return {size.width, size.height, type, light, samples.data(), row_bytes()}; }
  PictureSamples to_write() const { return {size.width, size.height, 3, type, samples.data()}; }
};

std::vector<std::string> lens_files(const ViewArguments& arguments) {
  std::vector<std::string> files{arguments.lens};
  if (arguments.other_lens) files.push_back(*arguments.other_lens);
  return files;
}

std::vector<NamedPath> inputs_of(const ViewArguments& arguments) {
  std::vector<NamedPath> inputs{{"FRAME", arguments.frame}, {"--lens", arguments.lens}};
  if (arguments.other_lens) inputs.push_back({"--compare", *arguments.other_lens});
  return inputs;
}

// A file that check_lens() took.
RigState load_rig(const std::string& path) {
  RigState rig;
  ChatterCapture quiet(ChatterCapture::Streams::kOutputAndErrors);
  load_lens_description(rig, path, kLensSection);
  return rig;
}

void check_frame(const std::string& lens_path, const LensFacts& lens, const DeepFrame& frame) {
  if (const auto note = check_frame_size(lens, lens_path, frame.width, frame.height)) {
    std::cerr << "twintrue: note: " << *note << "\n";
  }
}

// One picture, or, of a blinking one, that of each eye.
std::vector<Picture> draw(const ViewArguments& arguments, const ViewPlan& plan, const DeepFrame& frame) {
  std::vector<render::Layout> layouts{plan.layout};
  if (plan.blink) layouts.push_back(render::Layout::kRightEye);
  std::vector<Picture> pictures;
  for (std::size_t i = 0; i < layouts.size(); ++i) {
    Picture picture{plan.all(), kept_type(plan.format, frame.type), kept_light(plan.format), {}};
    picture.samples.resize(picture.row_bytes() * static_cast<std::size_t>(picture.size.height));
    pictures.push_back(std::move(picture));
  }
  const render::FramePixels pixels{static_cast<int>(frame.width), static_cast<int>(frame.height), frame.type,
                                   frame.light, frame.samples.data()};
  const ThreadTeam team(arguments.threads);
  int lens = 0;
  for (const std::string& file : lens_files(arguments)) {
    const render::Window place = plan.place(lens++);
    const render::StereoRender render(pixels, load_rig(file).current, plan.view, plan.sampling);
    for (std::size_t i = 0; i < layouts.size(); ++i) {
      render.draw(layouts[i], plan.part,
                  pictures[i].room().part(place.x, place.y, place.width, place.height));
    }
  }
  return pictures;
}

// The whole file, for the formats that this program writes by itself.
std::string encode(const ViewPlan& plan, const std::vector<Picture>& pictures) {
  const std::string tags = panorama_tags(plan);
  if (plan.format == PictureFormat::kJpeg) return encode_jpeg(pictures.front().to_write(), tags);
  if (!plan.blink) return encode_png(pictures.front().to_write(), tags);
  std::vector<PictureSamples> samples;
  for (const Picture& picture : pictures) samples.push_back(picture.to_write());
  return encode_animation(samples, kBlinkMilliseconds, tags);
}

void write(const ViewArguments& arguments, const ViewPlan& plan, const std::vector<Picture>& pictures) {
  const NamedPath target{"-o", arguments.out};
  const bool by_helper = plan.format == PictureFormat::kTiff || plan.format == PictureFormat::kExr;
  // Before the file is there: this takes the longest, and may be interrupted.
  const std::string bytes = by_helper ? std::string() : encode(plan, pictures);
  const SignalsHeld held;
  OutputFile file(target, inputs_of(arguments));
  if (by_helper) {
    write_picture(file, plan.format == PictureFormat::kTiff ? "tiff" : "openexr",
                  pictures.front().to_write());
  } else {
    file.write(bytes);
  }
  file.commit();
}

}  // namespace

void view(const ViewArguments& arguments) {
  format_of(arguments.out, arguments.layout);
  {
    // What can't be written is told before any work is done.
    const SignalsHeld held;
    const OutputFile attempt({"-o", arguments.out}, inputs_of(arguments));
  }
  require_readable_file({"FRAME", arguments.frame});
  std::vector<LensFacts> lenses;
  for (const std::string& file : lens_files(arguments)) lenses.push_back(check_lens(file));
  const ViewPlan plan = plan_view(arguments, lenses.front().frame_height);
  const DeepFrame frame = read_deep_frame(arguments.frame);
  for (std::size_t i = 0; i < lenses.size(); ++i) check_frame(lens_files(arguments)[i], lenses[i], frame);
  const std::vector<Picture> pictures = draw(arguments, plan, frame);
  write(arguments, plan, pictures);
  const render::Window size = plan.all();
  fmt::print("{}: {} x {} pixels, {}, {}\n", arguments.out, size.width, size.height, arguments.projection,
             arguments.layout);
}

}  // namespace twintrue::cli

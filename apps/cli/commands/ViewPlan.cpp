#include "apps/cli/commands/ViewPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

#include "apps/cli/Problem.h"
#include "apps/cli/pictures/EncodedPictures.h"
#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {
namespace {

using render::Layout;
using render::Projection;
using render::Window;

constexpr double kRadiansPerDegree = 0.017453292519943295;
constexpr double kUsualRectilinearFov = 90.0;
constexpr double kUsualFisheyeFov = 180.0;

[[noreturn]] void fail(const std::string& where, const std::string& found, const std::string& expected,
                       const std::string& remedy) {
  throw Failure(ExitCode::kUsage, Problem{where, found, expected, remedy});
}

// Takes whole numbers and the letters between them off a text.
class TextReader {
 public:
  explicit TextReader(std::string_view text) : rest_(text) {}
  bool number(int& value) {
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (error != std::errc{} || value < 0) return false;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return true;
  }
  bool letter(char wanted) {
    if (rest_.empty() || rest_.front() != wanted) return false;
    rest_.remove_prefix(1);
    return true;
  }
  bool at_end() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

Layout layout_named(const std::string& name) {
  if (name == "side-by-side") return Layout::kSideBySide;
  if (name == "top-bottom") return Layout::kTopBottom;
  if (name == "anaglyph") return Layout::kAnaglyphRedCyan;
  if (name == "anaglyph-amber-blue") return Layout::kAnaglyphAmberBlue;
  if (name == "difference") return Layout::kDifference;
  return Layout::kLeftEye;
}

Projection projection_named(const std::string& name) {
  if (name == "rectilinear") return Projection::kRectilinear;
  return name == "fisheye" ? Projection::kFisheye : Projection::kHalfEquirect;
}

void take_size(const ViewArguments& arguments, int usual_side, render::View& view) {
  view.width = view.height = usual_side;
  if (!arguments.size) return;
  TextReader text(*arguments.size);
  const bool good = text.number(view.width) &&
                    (text.at_end() || (text.letter('x') && text.number(view.height) && text.at_end()));
  if (arguments.size->find('x') == std::string::npos) view.height = view.width;
  if (!good || view.width < 1 || view.height < 1 || view.width > kLargestPictureSide ||
      view.height > kLargestPictureSide) {
    fail("--size", fmt::format("`{}`", *arguments.size),
         fmt::format("pixels of each eye's picture, N or WIDTHxHEIGHT, at most {} a side",
                     kLargestPictureSide),
         "write it as in 2048 or 1920x1080");
  }
}

void take_direction(const ViewArguments& arguments, render::View& view) {
  const bool half = view.projection == Projection::kHalfEquirect;
  if (arguments.fov_deg && half) {
    fail("--fov", "a field of view for half-equirect", "none: it is 180 degrees each way",
         "leave it out, or use --crop");
  }
  if ((arguments.pan_deg || arguments.tilt_deg) && view.projection != Projection::kRectilinear) {
    fail(arguments.pan_deg ? "--pan" : "--tilt", fmt::format("a direction for {}", arguments.projection),
         "none: it shows all that the lens sees", "leave it out, or use --as rectilinear");
  }
  if (!half) {
    const bool fisheye = view.projection == Projection::kFisheye;
    const double usual = fisheye ? kUsualFisheyeFov : kUsualRectilinearFov;
    view.fov = arguments.fov_deg.value_or(usual) * kRadiansPerDegree;
  }
  view.pan = arguments.pan_deg.value_or(0.0) * kRadiansPerDegree;
  view.tilt = arguments.tilt_deg.value_or(0.0) * kRadiansPerDegree;
  if (!render::is_possible(view)) {
    fail("--fov", fmt::format("{} degrees", arguments.fov_deg.value_or(0.0)),
         "0.1 to 170 degrees across a rectilinear picture, to 360 across a fisheye's circle",
         "choose one within, or --as fisheye for a wide one");
  }
}

void take_crop(const ViewArguments& arguments, ViewPlan& plan) {
  plan.part = render::whole_window(plan.view);
  if (!arguments.crop) return;
  Window& part = plan.part;
  TextReader text(*arguments.crop);
  const bool good = text.number(part.width) && text.letter('x') && text.number(part.height) &&
                    text.letter('+') && text.number(part.x) && text.letter('+') && text.number(part.y) &&
                    text.at_end();
  if (!good || part.width < 1 || part.height < 1 || part.width > plan.view.width - part.x ||
      part.height > plan.view.height - part.y) {
    fail("--crop", fmt::format("`{}`", *arguments.crop),
         fmt::format("WIDTHxHEIGHT+X+Y within each eye's picture of {} x {} pixels", plan.view.width,
                     plan.view.height),
         "write it as in 800x600+100+50, or change --size");
  }
}

void check_whole_size(const ViewPlan& plan) {
  const Window all = plan.all();
  const bool jpeg = plan.format == PictureFormat::kJpeg;
  const int side = jpeg ? kLargestJpegSide : kLargestPictureSide;
  if (is_picture_size(all.width, all.height) && std::max(all.width, all.height) <= side) return;
  fail("--size", fmt::format("a picture of {} x {} pixels in all", all.width, all.height),
       fmt::format("at most {} pixels a side and {} million in all", side, kMostPicturePixels / 1000000),
       "choose a smaller --size, or cut it by --crop");
}

}  // namespace

Window ViewPlan::all() const {
  Window size = one();
  if (compare) (below ? size.height : size.width) *= 2;
  return size;
}

Window ViewPlan::place(int lens) const {
  Window window = one();
  if (lens > 0) {
    window.x = below ? 0 : window.width;
    window.y = below ? window.height : 0;
  }
  return window;
}

PictureFormat format_of(const std::string& out, const std::string& layout) {
  std::string ending = std::filesystem::path(out).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const bool blink = layout == "blink";
  if (ending == ".png") return PictureFormat::kPng;
  if (blink) {
    fail(fmt::format("-o: {}", out), fmt::format("a blinking picture in a file `{}`", ending),
         "a name that ends in .png: the picture is an animated PNG", "choose another name or layout");
  }
  if (ending == ".jpg" || ending == ".jpeg") return PictureFormat::kJpeg;
  if (ending == ".tif" || ending == ".tiff") return PictureFormat::kTiff;
  if (ending == ".exr") return PictureFormat::kExr;
  fail(fmt::format("-o: {}", out), ending.empty() ? "a name without an ending" : fmt::format("`{}`", ending),
       "a name that ends in .png, .jpg, .tif or .exr: it tells the format", "choose another name");
}

ViewPlan plan_view(const ViewArguments& arguments, int frame_height) {
  ViewPlan plan;
  plan.format = format_of(arguments.out, arguments.layout);
  plan.layout = layout_named(arguments.layout);
  plan.blink = plan.layout == Layout::kLeftEye;
  plan.compare = arguments.other_lens.has_value();
  plan.below = arguments.compare_in ? *arguments.compare_in == "rows" : plan.layout != Layout::kTopBottom;
  if (arguments.compare_in && !plan.compare) {
    fail("--compare-in", "no second lens file", "--compare OTHER.lens",
         "name one, or leave --compare-in out");
  }
  plan.sampling = arguments.sampling == "light" ? render::Light::kLinear : render::Light::kEncoded;
  plan.view.projection = projection_named(arguments.projection);
  // A quarter of a half sphere takes half of its height.
  const bool rectilinear = plan.view.projection == Projection::kRectilinear;
  take_size(arguments, std::max(1, rectilinear ? frame_height / 2 : frame_height), plan.view);
  take_direction(arguments, plan.view);
  take_crop(arguments, plan);
  check_whole_size(plan);
  return plan;
}

render::SampleType kept_type(PictureFormat format, render::SampleType of_frame) {
  switch (format) {
    case PictureFormat::kJpeg:
      return render::SampleType::kByte;
    case PictureFormat::kPng:
      return std::min(of_frame, render::SampleType::kWord);
    case PictureFormat::kExr:
      return render::SampleType::kFloat;
    default:
      return of_frame;
  }
}

render::Light kept_light(PictureFormat format) {
  return format == PictureFormat::kExr ? render::Light::kLinear : render::Light::kEncoded;
}

std::string panorama_tags(const ViewPlan& plan) {
  if (plan.view.projection != Projection::kHalfEquirect || plan.compare) return {};
  // Of one eye: the whole sphere is twice as wide as the half that the view shows the middle of.
  std::string tags = fmt::format(
      "   <GPano:UsePanoramaViewer>True</GPano:UsePanoramaViewer>\n"
      "   <GPano:ProjectionType>equirectangular</GPano:ProjectionType>\n"
      "   <GPano:FullPanoWidthPixels>{}</GPano:FullPanoWidthPixels>\n"
      "   <GPano:FullPanoHeightPixels>{}</GPano:FullPanoHeightPixels>\n"
      "   <GPano:CroppedAreaImageWidthPixels>{}</GPano:CroppedAreaImageWidthPixels>\n"
      "   <GPano:CroppedAreaImageHeightPixels>{}</GPano:CroppedAreaImageHeightPixels>\n"
      "   <GPano:CroppedAreaLeftPixels>{}</GPano:CroppedAreaLeftPixels>\n"
      "   <GPano:CroppedAreaTopPixels>{}</GPano:CroppedAreaTopPixels>\n",
      2 * plan.view.width, plan.view.height, plan.part.width, plan.part.height,
      plan.view.width / 2 + plan.part.x, plan.part.y);
  if (plan.layout == Layout::kSideBySide || plan.layout == Layout::kTopBottom) {
    tags += fmt::format("   <GSpherical:StereoMode>{}</GSpherical:StereoMode>\n",
                        plan.layout == Layout::kSideBySide ? "left-right" : "top-bottom");
  }
  return "<?xpacket begin=\"\xef\xbb\xbf\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
         "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
         " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
         "  <rdf:Description rdf:about=\"\" xmlns:GPano=\"http://ns.google.com/photos/1.0/panorama/\"\n"
         "    xmlns:GSpherical=\"http://ns.google.com/videos/1.0/spherical/\">\n" +
         tags +
         "  </rdf:Description>\n"
         " </rdf:RDF>\n"
         "</x:xmpmeta>\n"
         "<?xpacket end=\"r\"?>";
}

}  // namespace twintrue::cli

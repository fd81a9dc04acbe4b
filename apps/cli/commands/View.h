#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace twintrue::cli {

// What `twintrue view` is given. Texts are as the person wrote them.
struct ViewArguments {
  std::string frame;
  std::string lens;
  std::optional<std::string> other_lens;
  std::string out;
  std::string projection = "half-equirect";  // one of kViewProjections
  std::string layout = "side-by-side";       // one of kViewLayouts
  std::optional<std::string> size;           // N or WxH, of each eye's picture
  std::optional<std::string> crop;           // WxH+X+Y, of each eye's picture
  std::optional<double> fov_deg;
  std::optional<double> pan_deg;
  std::optional<double> tilt_deg;
  std::optional<std::string> compare_in;  // rows or columns
  std::string sampling = "display";       // or light
  int threads = 0;                        // 1 to kMostThreads; 0: default_thread_count()
};

inline constexpr std::array kViewProjections{"half-equirect", "rectilinear", "fisheye"};
inline constexpr std::array kViewLayouts{"side-by-side",        "top-bottom", "anaglyph",
                                         "anaglyph-amber-blue", "difference", "blink"};

// Renders what a viewer sees through a lens file, writes it, and tells on standard output what was written.
// Throws Failure.
void view(const ViewArguments& arguments);

}  // namespace twintrue::cli

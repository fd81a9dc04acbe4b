#pragma once

#include <array>
#include <optional>
#include <string>

namespace twintrue::cli {

struct LensArguments {
  std::string file;
  std::optional<std::string> out;
  std::string eye;                   // ray, image
  std::array<std::string, 3> point;  // ray: px, py; image: x, y, z
  std::string out_lens;              // write
  std::string pose;
};

// `inspect lens-text`, `lens`, `ray`, `image` and `write`: a lens file's text, the rig that it describes, its
// projection, and the file with ten corrections put in.
void inspect_lens_text(const LensArguments& arguments);
void inspect_lens(const LensArguments& arguments);
void inspect_ray(const LensArguments& arguments);
void inspect_image(const LensArguments& arguments);
void inspect_write(const LensArguments& arguments);

}  // namespace twintrue::cli

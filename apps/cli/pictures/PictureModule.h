#pragma once

// What the program and its picture module agree on. The module alone is linked to OpenImageIO, whose start
// with all the libraries under it takes longer than most commands: it is loaded with the first picture that
// has no reader of its own (apps/cli/PictureFiles.h).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace twintrue::cli {

// The largest picture that is taken: the largest frame that a lens file speaks of, and what memory holds with
// ease.
inline constexpr int kLargestPictureSide = 65536;
inline constexpr std::int64_t kMostPicturePixels = std::int64_t{1} << 28;

// A frame in memory: rows from top to bottom without gaps, three bytes a pixel: red, green, blue.
struct Frame {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> pixels;
};

// Why a picture can't be used, in the words of a Problem.
struct PictureProblem {
  std::string found;
  std::string expected;
  std::string remedy;
};

// The module's functions. Both may throw std::bad_alloc and nothing else.
struct PictureModule {
  // Fills `frame`, which is empty; see read_frame. Whatever it holds beside a problem is of no use.
  std::optional<PictureProblem> (*read_frame)(const std::string& path, Frame* frame);
  // Writes rows of floats, from top to bottom without gaps, as a TIFF of one channel.
  std::optional<PictureProblem> (*write_floats)(const std::string& path, std::int32_t width,
                                                std::int32_t height, const float* pixels);
};

inline constexpr const char* kPictureModuleSymbol = "twintrue_picture_module";

}  // namespace twintrue::cli

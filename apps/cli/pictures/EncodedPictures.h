#pragma once

// Pictures as the bytes of a file, by the libraries that read JPEG and PNG.

#include <string>
#include <vector>

#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {

// A PNG of three channels, bytes or 16 bits, with `xmp` (an XMP packet; empty: none). Equal pictures give
// equal bytes. Throws std::bad_alloc, and std::runtime_error if the library refuses.
std::string encode_png(const PictureSamples& picture, const std::string& xmp);

// The same as pictures that follow each other for ever, each shown for so many milliseconds (at most 65535):
// an animated PNG, whose first picture is all that a viewer without animations shows. At least one picture;
// all of them of one size and type.
std::string encode_animation(const std::vector<PictureSamples>& pictures, int milliseconds,
                             const std::string& xmp);

// The longest side of a JPEG.
inline constexpr int kLargestJpegSide = 65500;

// A JPEG of bytes in three channels, its colours at full resolution. Throws as encode_png.
std::string encode_jpeg(const PictureSamples& picture, const std::string& xmp);

}  // namespace twintrue::cli

#pragma once

// Picture files in and out. JPEG and PNG are read at once; for all else the picture module, with OpenImageIO
// behind it, is loaded at the first use and stays. No word is printed: the libraries under OpenImageIO have
// messages of their own, and what matters of them is in the Failure. Use these functions from one thread at a
// time.

#include <cstdint>
#include <string>
#include <vector>

#include "apps/cli/OutputFile.h"
#include "apps/cli/pictures/PictureModule.h"

namespace twintrue::cli {

// Reads the first picture of any file that OpenImageIO knows. Alpha is dropped and does not darken the
// colours; one channel becomes three equal ones. Values of more than 8 bits are rounded to 8; those of a file
// that says they are linear light (as OpenEXR does) are encoded by the sRGB curve first, which is what 8-bit
// pictures hold. Throws Failure (input unreadable): no such file, no picture, a damaged one, or one of an
// absurd size; Failure (other): the program is installed without its picture module.
Frame read_frame(const std::string& path);

// Writes width x height floats, rows from top to bottom without gaps, as a TIFF of one channel into the
// temporary file of `file`. Throws Failure (other).
void write_float_picture(const OutputFile& file, std::int32_t width, std::int32_t height,
                         const std::vector<float>& pixels);

}  // namespace twintrue::cli

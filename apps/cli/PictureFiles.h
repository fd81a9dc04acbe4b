#pragma once

// Picture files in and out. Sound JPEG and PNG files are read in this process; all else is decoded by a
// helper, a process of its own with limits of time and memory (apps/cli/pictures/HelperRun.h).
// docs/pictures.md has the table of formats. Use these functions from one thread at a time.

#include <cstdint>
#include <string>
#include <vector>

#include "apps/cli/OutputFile.h"
#include "apps/cli/pictures/Frame.h"
#include "apps/cli/pictures/HelperPictures.h"

namespace twintrue::cli {

// Reads the first picture of a file, whose format its content tells. Alpha is dropped and does not darken the
// colours; one channel becomes three equal ones. Values of more than 8 bits are rounded to 8; those of a file
// that says they are linear light (as OpenEXR does) are encoded by the sRGB curve first, which is what 8-bit
// pictures hold. If the file holds more pictures than one, a line on standard error says so. Throws Failure
// (input unreadable): no such file, no picture or none of a format that is taken, a damaged one, one of an
// absurd size, or one that the helper failed on; Failure (other): the program is installed without its
// helper.
Frame read_frame(const std::string& path, const HelperRun& helper = installed_helper());

// The same with samples as deep as those of the file, and what is linear light told rather than encoded.
DeepFrame read_deep_frame(const std::string& path, const HelperRun& helper = installed_helper());

// Writes a picture by OpenImageIO's writer of that name ("tiff", "openexr") into the temporary file of
// `file`. Equal pixels give equal files. Throws Failure (other).
void write_picture(const OutputFile& file, const std::string& writer, const PictureSamples& picture,
                   const HelperRun& helper = installed_helper());

// Writes width x height floats, rows from top to bottom without gaps, as a TIFF of one channel into the
// temporary file of `file`. Equal pixels give equal files. Throws Failure (other).
void write_float_picture(const OutputFile& file, std::int32_t width, std::int32_t height,
                         const std::vector<float>& pixels, const HelperRun& helper = installed_helper());

}  // namespace twintrue::cli

#pragma once

// What a file is by its first bytes. Its name has no say: endings are wrong more often than contents, and a
// reader that is chosen by the ending can be chosen by whoever named the file.

#include <string>
#include <variant>

#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {

// A format that frames are read from.
struct PictureKind {
  const char* name;    // as people call it, "TIFF" for instance
  const char* reader;  // OpenImageIO's name for its reader
};

// The formats of the table in docs/pictures.md; for every other content what it seems to be, and what to do.
// A file that can't be read at all counts as one of unknown content.
std::variant<PictureKind, PictureProblem> recognise_picture(const std::string& path);

}  // namespace twintrue::cli

#pragma once

// Pictures through the helper, and what its end means to a person.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "apps/cli/pictures/Frame.h"
#include "apps/cli/pictures/HelperRun.h"
#include "apps/cli/pictures/PictureKind.h"

namespace twintrue::cli {

// The helper that was installed or built with the running program, found from where the program stands, with
// the limits that are always kept.
HelperRun installed_helper();

// Reads the first picture of a file of that kind. A decoder that crashes, takes too long or too much memory,
// or gives what can't be, is a problem of the picture. Throws Failure (other) if there is no helper that
// starts, std::bad_alloc, and std::system_error if the system has no process or memory file to give.
std::variant<Frame, PictureProblem> read_by_helper(const HelperRun& helper, const PictureKind& kind,
                                                   const std::string& path);

// The same with samples as deep as the file's.
std::variant<DeepFrame, PictureProblem> read_deep_by_helper(const HelperRun& helper, const PictureKind& kind,
                                                            const std::string& path);

// Writes a picture by OpenImageIO's writer of that name into the file that the descriptor stands for. Throws
// as read_by_helper.
std::optional<PictureProblem> write_by_helper(const HelperRun& helper, const std::string& writer,
                                              int descriptor, const PictureSamples& picture);

}  // namespace twintrue::cli

#include "apps/cli/PictureFiles.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <iostream>
#include <optional>
#include <system_error>
#include <utility>
#include <variant>

#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"
#include "apps/cli/pictures/CommonPictures.h"
#include "apps/cli/pictures/Descriptor.h"
#include "apps/cli/pictures/PictureKind.h"

namespace twintrue::cli {
namespace {

[[noreturn]] void fail(ExitCode code, std::string where, PictureProblem problem) {
  throw Failure(code, Problem{std::move(where), std::move(problem.found), std::move(problem.expected),
                              std::move(problem.remedy)});
}

std::variant<Frame, PictureProblem> first_picture(const std::string& path, const HelperRun& helper) {
  auto kind = recognise_picture(path);
  if (auto* const problem = std::get_if<PictureProblem>(&kind)) return std::move(*problem);
  if (auto common = read_common_picture(path)) return std::move(*common);
  return read_by_helper(helper, std::get<PictureKind>(kind), path);
}

}  // namespace

Frame read_frame(const std::string& path, const HelperRun& helper) {
  require_readable_file({"FRAME", path});
  auto picture = first_picture(path, helper);
  const std::string where = fmt::format("FRAME: {}", path);
  if (auto* const problem = std::get_if<PictureProblem>(&picture)) {
    fail(ExitCode::kInputUnreadable, where, std::move(*problem));
  }
  auto& frame = std::get<Frame>(picture);
  if (frame.pictures > 1) {
    std::cerr << fmt::format("twintrue: {} holds {}{} pictures; the first one is used\n", where,
                             frame.pictures, frame.pictures < kMostPicturesCounted ? "" : " or more");
  }
  return std::move(frame);
}

void write_float_picture(const OutputFile& file, std::int32_t width, std::int32_t height,
                         const std::vector<float>& pixels, const HelperRun& helper) {
  const std::string where = fmt::format("-o: {}", file.target().string());
  constexpr mode_t kMode = 0666;  // less what the user's mask takes away
  const int number = open(file.temporary().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode);
  if (number < 0) {
    fail(ExitCode::kOther, where,
         {std::generic_category().message(errno), "a file that can be written", "choose another folder"});
  }
  const Descriptor output(number, "open");
  if (auto problem = write_by_helper(helper, output.get(), width, height, pixels)) {
    fail(ExitCode::kOther, where, std::move(*problem));
  }
}

}  // namespace twintrue::cli

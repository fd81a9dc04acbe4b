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

// Hands the first picture of a file to the reader that it takes. `common` makes what is wanted of a Frame.
template <typename Picture, typename Common, typename ByHelper>
std::variant<Picture, PictureProblem> first_picture(const std::string& path, const Common& common,
                                                    const ByHelper& by_helper) {
  auto kind = recognise_picture(path);
  if (auto* const problem = std::get_if<PictureProblem>(&kind)) return std::move(*problem);
  if (auto frame = read_common_picture(path)) return common(std::move(*frame));
  return by_helper(std::get<PictureKind>(kind));
}

// The picture, or the Failure; tells of further pictures in the file.
template <typename Picture>
Picture required(const std::string& path, std::variant<Picture, PictureProblem> picture) {
  const std::string where = fmt::format("FRAME: {}", path);
  if (auto* const problem = std::get_if<PictureProblem>(&picture)) {
    fail(ExitCode::kInputUnreadable, where, std::move(*problem));
  }
  auto& frame = std::get<Picture>(picture);
  if (frame.pictures > 1) {
    std::cerr << fmt::format("twintrue: {} holds {}{} pictures; the first one is used\n", where,
                             frame.pictures, frame.pictures < kMostPicturesCounted ? "" : " or more");
  }
  return std::move(frame);
}

}  // namespace

Frame read_frame(const std::string& path, const HelperRun& helper) {
  require_readable_file({"FRAME", path});
  return required(path, first_picture<Frame>(
                            path, [](Frame frame) { return frame; },
                            [&](const PictureKind& kind) { return read_by_helper(helper, kind, path); }));
}

DeepFrame read_deep_frame(const std::string& path, const HelperRun& helper) {
  require_readable_file({"FRAME", path});
  const auto deepen = [](Frame frame) {
    return DeepFrame{frame.width,
                     frame.height,
                     render::SampleType::kByte,
                     render::Light::kEncoded,
                     std::move(frame.pixels),
                     frame.pictures};
  };
  return required(path, first_picture<DeepFrame>(path, deepen, [&](const PictureKind& kind) {
                    return read_deep_by_helper(helper, kind, path);
                  }));
}

void write_picture(const OutputFile& file, const std::string& writer, const PictureSamples& picture,
                   const HelperRun& helper) {
  const std::string where = fmt::format("-o: {}", file.target().string());
  constexpr mode_t kMode = 0666;  // less what the user's mask takes away
  const int number = open(file.temporary().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode);
  if (number < 0) {
    fail(ExitCode::kOther, where,
         {std::generic_category().message(errno), "a file that can be written", "choose another folder"});
  }
  const Descriptor output(number, "open");
  if (auto problem = write_by_helper(helper, writer, output.get(), picture)) {
    fail(ExitCode::kOther, where, std::move(*problem));
  }
}

void write_float_picture(const OutputFile& file, std::int32_t width, std::int32_t height,
                         const std::vector<float>& pixels, const HelperRun& helper) {
  write_picture(file, "tiff", {width, height, 1, render::SampleType::kFloat, pixels.data()}, helper);
}

}  // namespace twintrue::cli

#include "apps/cli/PictureFiles.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <optional>
#include <utility>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"
#include "apps/cli/pictures/CommonPictures.h"

namespace twintrue::cli {
namespace {

// The module is looked for in the folders that the program was linked to look in. It is never unloaded: the
// libraries under it keep threads and caches.
const PictureModule& picture_module() {
  if (void* const library = dlopen(TWINTRUE_PICTURE_MODULE, RTLD_LAZY | RTLD_LOCAL)) {
    if (const void* const symbol = dlsym(library, kPictureModuleSymbol)) {
      return *static_cast<const PictureModule*>(symbol);
    }
  }
  const char* const reason = dlerror();
  throw Failure(ExitCode::kOther,
                Problem{"picture module", reason != nullptr ? reason : "it could not be loaded",
                        fmt::format("{} where the program was installed", TWINTRUE_PICTURE_MODULE),
                        "install the program whole, with OpenImageIO"});
}

[[noreturn]] void fail(ExitCode code, std::string where, PictureProblem problem) {
  throw Failure(code, Problem{std::move(where), std::move(problem.found), std::move(problem.expected),
                              std::move(problem.remedy)});
}

}  // namespace

Frame read_frame(const std::string& path) {
  require_readable_file({"FRAME", path});
  if (auto common = read_common_picture(path)) return std::move(*common);
  const PictureModule& module = picture_module();
  Frame frame;
  std::optional<PictureProblem> problem;
  {
    const ChatterCapture quiet(ChatterCapture::Streams::kOutputAndErrors);
    problem = module.read_frame(path, &frame);
  }
  if (problem) fail(ExitCode::kInputUnreadable, fmt::format("FRAME: {}", path), std::move(*problem));
  return frame;
}

void write_float_picture(const OutputFile& file, std::int32_t width, std::int32_t height,
                         const std::vector<float>& pixels) {
  const PictureModule& module = picture_module();
  std::optional<PictureProblem> problem;
  {
    const ChatterCapture quiet(ChatterCapture::Streams::kOutputAndErrors);
    problem = module.write_floats(file.temporary().string(), width, height, pixels.data());
  }
  if (problem) fail(ExitCode::kOther, fmt::format("-o: {}", file.target().string()), std::move(*problem));
}

}  // namespace twintrue::cli

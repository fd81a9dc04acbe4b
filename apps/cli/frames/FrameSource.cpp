#include "apps/cli/frames/FrameSource.h"

#include "apps/cli/InputFile.h"
#include "apps/cli/PictureFiles.h"

namespace twintrue::cli {

std::vector<NamedPath> files_of(const FrameRequest& request) {
  std::vector<NamedPath> files;
  for (const std::string& path : request.paths) files.push_back({"FRAME", path});
  return files;
}

FrameSource::FrameSource(const FrameRequest& request) : names_(request.paths) {
  for (const NamedPath& file : files_of(request)) require_readable_file(file);
}

Frame FrameSource::read(std::size_t at) { return read_frame(names_[at]); }

}  // namespace twintrue::cli

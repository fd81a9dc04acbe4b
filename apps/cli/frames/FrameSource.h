#pragma once

// The frames that a command is given, one after the other, whatever they come from: each as it would lie in a
// picture file, both halves side by side, the right eye's picture on the left.

#include <cstddef>
#include <string>
#include <vector>

#include "apps/cli/OutputFile.h"
#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {

// As the person asked for them.
struct FrameRequest {
  std::vector<std::string> paths;  // picture files
};

// The files of a request, which no output may replace.
std::vector<NamedPath> files_of(const FrameRequest& request);

class FrameSource {
 public:
  // Looks at the files as far as needed to tell how many frames there are. Throws Failure (usage, input
  // unreadable).
  explicit FrameSource(const FrameRequest& request);

  std::size_t size() const { return names_.size(); }
  // What a person knows a frame by; for a picture file its path.
  const std::string& name(std::size_t at) const { return names_[at]; }

  // Reads a frame; again if asked again. From one thread at a time, in any order. Throws Failure (input
  // unreadable).
  Frame read(std::size_t at);

 private:
  std::vector<std::string> names_;
};

}  // namespace twintrue::cli

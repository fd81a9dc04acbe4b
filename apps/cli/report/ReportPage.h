#pragma once

// The page that explains a run: one HTML file, with nothing outside it and no script. docs/report.md tells a
// reader what each picture shows.

#include <optional>
#include <string>
#include <vector>

#include "apps/cli/RunReport.h"
#include "apps/cli/report/Misalignment.h"
#include "apps/cli/report/RunInputs.h"
#include "apps/cli/report/RunRecord.h"
#include "apps/cli/report/ViewPictures.h"

namespace twintrue::cli {

// All that a page tells.
struct PageFacts {
  RunReport report;
  RunRecord record;
  RunInputs inputs;
  Misalignment misalignment;  // without matches if there was no search
  std::vector<DirectionView> views;
  std::optional<FramePreview> preview;  // of a run without a search: what the frame is like
};

// The whole file, in UTF-8. A pure function.
std::string format_page(const PageFacts& facts);

}  // namespace twintrue::cli

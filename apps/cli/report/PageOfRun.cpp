#include "apps/cli/report/PageOfRun.h"

#include <optional>
#include <utility>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/report/ReportPage.h"
#include "base/ThreadTeam.h"
#include "lens/LensParameters.h"

namespace twintrue::cli {
namespace {

// A file that the run could use.
RigState load_rig(const std::string& path) {
  RigState rig;
  const ChatterCapture quiet(ChatterCapture::Streams::kOutputAndErrors);
  if (load_lens_description(rig, path, kLensSection) == 0) {
    throw Failure(ExitCode::kOther, Problem{"--report", "the lens file " + path + " can't be read any more",
                                            "the lens file as the run read it",
                                            "leave the file alone until the run has ended"});
  }
  return rig;
}

EyeShapes shapes_of(const RunReport& report) {
  return report.polished ? report.polished->shapes : EyeShapes{};
}

}  // namespace

std::string page_of_run(const RunReport& report, RunRecord&& record, RunInputs&& inputs, const Frame& frame,
                        int threads) {
  const ThreadTeam team(threads);
  const RigState rig = load_rig(report.lens_path);
  PageFacts facts{report, std::move(record), std::move(inputs), {}, {}, {}};
  if (report.has_pose()) {
    facts.misalignment = look_at_matches(rig, facts.record.matches, report.pose(), shapes_of(report));
    RigState corrected = with_shapes(rig, shapes_of(report));
    rig_apply_pose(corrected, report.pose());
    facts.views = draw_directions(frame, rig.current, &corrected.current);
  } else {
    facts.misalignment = look_at_lens(rig);
    facts.preview = draw_frame(frame, facts.misalignment.circles);
    facts.views = draw_directions(frame, rig.current, nullptr);
  }
  return format_page(facts);
}

}  // namespace twintrue::cli

#include "apps/cli/commands/InspectSearch.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/Problem.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/checks/SettingsCheck.h"
#include "apps/cli/commands/InspectJson.h"
#include "apps/cli/commands/InspectMatches.h"
#include "apps/cli/commands/InspectOutput.h"
#include "search/CalibContext.h"
#include "search/MatchFiltering.h"
#include "search/PoseSearch.h"

namespace twintrue::cli {
namespace {

// What goes into the search.
struct SearchInput {
  RigState rig;
  std::unique_ptr<CalibContext> context = std::make_unique<CalibContext>();
  std::vector<RayMatch> matches;
  std::int32_t cells = 0;
  bool enough = true;  // whether a calibration would come to the search
};

Json pose_json(const CalibResult& pose) {
  Json array = Json::array();
  for (double CalibResult::*const field : kPoseFields) array.push_back(pose.*field);
  return array;
}

Json seeds_json(const Seeds& seeds) {
  Json array = Json::array();
  for (const PoseCandidate& seed : seeds) {
    array.push_back({{"pose", pose_json(seed)}, {"score", seed.score}, {"sigma", seed.sigma}});
  }
  return array;
}

// Keeps the course of a search.
class SearchTrace final : public SearchObserver {
 public:
  void on_level(std::int32_t /*retry*/, std::int32_t level, bool skipped, std::int64_t candidates,
                const Seeds& seeds) override {
    Json json;
    json["level"] = level;
    json["skipped"] = skipped;
    json["candidates"] = candidates;
    json["seeds"] = seeds_json(seeds);
    levels_.push_back(std::move(json));
  }

  void on_final(std::int32_t retry, double score, const MatchScoreSums& sums) override {
    Json json;
    json["retry"] = retry;
    json["levels"] = std::exchange(levels_, Json::array());
    json["final"]["score"] = score;
    json["final"]["sums"] = {{"score_sum", sums.score_sum},
                             {"sum4", sums.sum4},
                             {"count4", sums.count4},
                             {"sum16", sums.sum16},
                             {"count16", sums.count16}};
    retries_.push_back(std::move(json));
  }

  Json take_retries() { return std::move(retries_); }

 private:
  Json levels_ = Json::array();  // of the retry that runs
  Json retries_ = Json::array();
};

Json result_json(const PoseCandidate& result) {
  Json json;
  json["pose"] = pose_json(result);
  json["score"] = result.score;
  json["quality"] = result.quality;
  json["detection_ratio"] = result.detection_ratio;
  json["error16"] = result.error16;
  json["last_retry"] = result.last_retry;
  json["best_retry"] = result.best_retry;
  return json;
}

// Of settings that have passed the check, so that only a lens file of another width can make them fail.
void load_settings(ParamDocument& settings, const std::string& lens, SearchInput& input) {
  if (!load_calib_settings(*input.context, settings, input.rig.frame_width)) {
    throw Failure(ExitCode::kOther, Problem{lens, "a file that changed while it was read",
                                            "the same contents throughout", "start again"});
  }
  input.context->verbose = false;
}

SearchInput from_frame(const SearchArguments& arguments) {
  const auto run = open_frame_run(arguments, Reach::kSearch);
  SearchInput input;
  const MatchedHalves halves(*run);
  const MessagesToErrors redirected;
  input.rig = std::move(run->rig);
  load_settings(run->unit->document, arguments.lens, input);
  input.cells = run->cells();
  const CountTest test(*input.context, input.cells);
  const bool ignore = arguments.ignore_thresholds;
  const auto passes = [&](std::int32_t count, const char* message) {
    return test.passes(count, message) || ignore;
  };
  input.enough = passes(halves.left_half_keypoints, kFewLeftKeypoints) &&
                 passes(halves.right_half_keypoints, kFewRightKeypoints) &&
                 passes(halves.records, kFewMatches);
  if (halves.records > 0) input.matches = accepted_matches(halves.set);
  return input;
}

SearchInput from_matches(const SearchArguments& arguments) {
  const LensFacts lens = check_lens(arguments.lens);
  const std::unique_ptr<SettingsSource> source = arguments.settings.open();
  SearchInput input;
  input.matches = read_matches(*arguments.matches);
  ParamDocument settings = open_settings(*source);
  check_search_settings(*source, settings, lens);
  const MessagesToErrors redirected;
  read_lens(input.rig, arguments.lens);
  load_settings(settings, arguments.lens, input);
  input.cells = arguments.cells;
  return input;
}

void check_arguments(const SearchArguments& arguments) {
  const auto fail = [](const char* found, const char* expected) {
    throw Failure(ExitCode::kUsage, Problem{"inspect search", found, expected, "see --help"});
  };
  if (arguments.matches.has_value() == !arguments.frame.empty()) {
    fail(arguments.matches ? "both FRAME and --matches" : "neither FRAME nor --matches",
         "a picture, or a file of matches in its place");
  }
  if (arguments.matches && arguments.cells == 0) {
    fail("--matches without --cells", "the number of cells that the matches were found in");
  }
  if (!arguments.matches && arguments.cells != 0) {
    fail("--cells without --matches", "only FRAME, whose grid tells the number of cells");
  }
}

}  // namespace

void inspect_search(const SearchArguments& arguments) {
  check_arguments(arguments);
  std::vector<NamedPath> inputs = inputs_of(arguments);
  add_input(inputs, "--matches", arguments.matches);
  DocumentTarget target(arguments.out, inputs);
  SearchInput input = arguments.matches ? from_matches(arguments) : from_frame(arguments);
  CalibContext& context = *input.context;
  // A run that ends before has no search: then the filtering alone is shown.
  if (!input.enough) context.detection_ratio_th = std::numeric_limits<double>::infinity();

  PoseCandidate result;
  SearchTrace trace;
  std::int32_t status = 0;
  {
    const MessagesToErrors redirected;
    status = filter_and_search(context, input.rig, input.matches, result, input.cells,
                               arguments.ignore_thresholds, &trace);
  }
  Json json;
  json["status"] = status;
  json["kept"] = input.matches.size();
  json["histogram"] = json_array(context.rank_histogram);
  json["detection_ratio"] = result.detection_ratio;
  json["retries"] = trace.take_retries();
  json["result"] = result_json(result);
  target.write(write_json(json));
}

}  // namespace twintrue::cli

#include "apps/cli/commands/InspectSettings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/Preset.h"
#include "apps/cli/Problem.h"
#include "apps/cli/RunOptions.h"
#include "apps/cli/commands/InspectCalibJson.h"
#include "apps/cli/commands/InspectJson.h"
#include "apps/cli/commands/InspectOutput.h"
#include "apps/cli/commands/InspectSource.h"
#include "features/DetectorSettings.h"
#include "features/FeatureUnit.h"
#include "features/RENO_Impl.h"
#include "features/TestPattern.h"
#include "params/ParamDocument.h"
#include "search/CalibContext.h"

namespace twintrue::cli {
namespace {

void say_error(const std::exception& error) { fmt::print(stderr, "{}\n", error.what()); }

// What a source makes of the section `RENO`.
struct Detector {
  fpu::DetectorSettings settings;
  fpu::DescriptorSize size{settings.desc_bytes, 0};
};

// A document of its own: looking keys up changes the tree that others read.
Detector read_detector(const InspectSource& source) {
  Detector detector;
  ParamDocument document;
  open_document(source, document);
  if (!document.loaded) return detector;
  const ParamNode section = param_root_child(document, "RENO");
  detector.size = fpu::read_descriptor_size(section, detector.size.bytes);
  try {
    detector.settings.read(section);
  } catch (const std::exception&) {
    // A seed that is no number: all else is read by then, and the set-up of the unit tells of it.
  }
  return detector;
}

Json grid_json(const fpu::Grid& grid) {
  Json json;
  json["frameWidth"] = grid.frameWidth;
  json["frameHeight"] = grid.frameHeight;
  json["num_kps_in_cell"] = grid.num_kps_in_cell;
  json["max_num_kps_in_frame"] = grid.max_num_kps_in_frame;
  json["horz_cell_size"] = grid.horz_cell_size;
  json["vert_cell_size"] = grid.vert_cell_size;
  json["horz_cell_count"] = grid.horz_cell_count;
  json["vert_cell_count"] = grid.vert_cell_count;
  json["left"] = grid.left;
  json["top"] = grid.top;
  json["right"] = grid.right;
  json["bottom"] = grid.bottom;
  return json;
}

Json detector_json(const Detector& detector) {
  const fpu::DetectorSettings& settings = detector.settings;
  Json json;
  json["nfeatures"] = settings.nfeatures;
  json["scaleFactor"] = settings.scaleFactor;
  json["nlevels"] = settings.nlevels;
  json["edgeThreshold"] = settings.edgeThreshold;
  json["firstLevel"] = settings.firstLevel;
  json["wta_k"] = settings.wta_k;
  json["scoreType"] = settings.scoreType;
  json["patchSize"] = settings.patchSize;
  json["rotating"] = settings.rotating;
  json["refining"] = settings.refining;
  json["ds_mode"] = settings.ds_mode;
  json["gamma_mode"] = settings.gamma_mode;
  json["desc_gaus_size"] = settings.desc_gaus_size;
  json["desc_bytes"] = detector.size.bytes;
  json["desc_bits"] = detector.size.bits;
  json["filter_mode"] = settings.filter_mode;
  json["det_type"] = settings.det_type;
  json["no_extrema_suppression"] = settings.no_extrema_suppression;
  json["h_sigma"] = settings.h_sigma;
  json["desc_image_mode"] = settings.desc_image_mode;
  json["lpf_bit"] = settings.lpf_bit;
  json["shift_abd"] = settings.shift_abd;
  json["shift_det"] = settings.shift_det;
  json["shift_res"] = settings.shift_res;
  json["mul_subpixel"] = settings.mul_subpixel;
  json["rnd_mode"] = settings.rnd_mode;
  json["rSigma"] = settings.rSigma;
  json["weightDist"] = settings.weightDist;
  json["posLimit"] = settings.posLimit;
  json["patchIntCalcPattern"] = settings.patchIntCalcPattern;
  json["desc_length"] = settings.desc_bytes;
  const auto levels = static_cast<std::size_t>(std::clamp(settings.nlevels, 0, fpu::kMaxLevels));
  json["filter_type"] = json_array(std::span(settings.filter_type).first(levels));
  json["threshold"] = json_array(std::span(settings.threshold).first(levels));
  json["rndSeedMake"] = text_of_bytes(settings.rndSeedMake);
  json["rndSeedSelect"] = text_of_bytes(settings.rndSeedSelect);
  return json;
}

Json matching_json(const fpu::MatchingSettings& settings) {
  Json json;
  json["max_vector_ratio_h"] = settings.max_vector_ratio_h;
  json["max_vector_ratio_v"] = settings.max_vector_ratio_v;
  json["check_circle"] = settings.check_circle;
  json["k"] = settings.k;
  json["out_mode"] = settings.out_mode;
  json["penalty_mode"] = settings.penalty_mode;
  json["penalty_rshift"] = settings.penalty_rshift;
  json["penalty_res_coeff"] = settings.penalty_res_coeff;
  json["dist_ratio_offset"] = settings.dist_ratio_offset;
  json["dist_ratio_shift"] = settings.dist_ratio_shift;
  json["sat_offset"] = settings.sat_offset;
  json["score_th3"] = settings.score_th3;
  json["score_th4"] = settings.score_th4;
  json["acc_th"] = settings.acc_th;
  json["image_width"] = settings.image_width;
  json["image_height"] = settings.image_height;
  json["patchSize"] = settings.patchSize;
  json["weightDist"] = settings.weightDist;
  json["max_vector_h"] = settings.max_vector_h;
  json["max_vector_v"] = settings.max_vector_v;
  return json;
}

Json correction_json(const fpu::CorrectionSettings& settings) {
  Json json;
  json["th"] = settings.th[0];
  json["th2"] = settings.th[1];
  json["th3"] = settings.th[2];
  json["th4"] = settings.th[3];
  json["sort_mode"] = settings.sort_mode;
  json["sshift"] = settings.sshift;
  json["score_mode"] = settings.score_mode[0];
  json["score_mode2"] = settings.score_mode[1];
  json["score_mode3"] = settings.score_mode[2];
  json["score_mode4"] = settings.score_mode[3];
  json["max_score"] = settings.max_score;
  json["count_rshift"] = settings.count_rshift;
  json["normalizing_coeff"] = settings.normalizing_coeff;
  json["num_matching_in_cell_out"] = settings.num_matching_in_cell_out;
  json["normalizing_mode"] = settings.normalizing_mode;
  json["dist_ratio_shift"] = settings.dist_ratio_shift;
  json["neighbour_mode"] = settings.neighbour_mode;
  json["bin_width"] = settings.bin_width;
  json["normalizing"] = settings.normalizing;
  json["ref_prev_frame_data_mode"] = settings.ref_prev_frame_data_mode;
  json["res_th"] = settings.res_th;
  json["res_th_both"] = settings.res_th_both;
  json["diff_pt_th"] = settings.diff_pt_th;
  json["image_width"] = settings.image_width;
  json["image_height"] = settings.image_height;
  json["max_num_data_in_cell"] = settings.max_num_data_in_cell;
  json["candidates"] = settings.candidates;
  return json;
}

Json check_json(const fpu::CheckSettings& settings) {
  Json json;
  json["enabled"] = settings.enabled;
  json["rules"] = Json::array();
  for (const fpu::CheckRule& rule : settings.rules) {
    json["rules"].push_back(
        {{"score_th", rule.score_th}, {"ch", rule.ch}, {"dist_ratio_th", rule.dist_ratio_th}});
  }
  json["ch_bg"] = settings.ch_bg;
  json["res_th_bg"] = settings.res_th_bg;
  json["res_th_bg_both"] = settings.res_th_bg_both;
  json["score_th_bg"] = settings.score_th_bg;
  json["res_th"] = settings.res_th;
  json["res_th_both"] = settings.res_th_both;
  json["rank_th"] = settings.rank_th;
  json["long_mv_th_ratio_gmv"] = settings.long_mv_th_ratio_gmv;
  json["long_mv_th_ratio_gmv_bg"] = settings.long_mv_th_ratio_gmv_bg;
  json["auto_night_mode"] = settings.auto_night_mode;
  return json;
}

// Sets a unit up as createFeatureUnit() does, but keeps what a failed set-up leaves. Gives the result of
// init(), or nothing if it did not come to that.
std::optional<std::int32_t> set_up(fpu::FeatureUnit& unit, const SettingsArguments& arguments,
                                   const InspectSource& source) {
  if (arguments.width < 1 || arguments.height < 1) return std::nullopt;
  unit.verbose = false;
  unit.timer.printEnabled = false;
  try {
    if (!param_document_open(unit.document, source.path())) return std::nullopt;
    unit.frameWidth = arguments.width;
    unit.frameHeight = arguments.height;
    unit.opened = true;
    return unit.init();
  } catch (const std::exception& error) {
    say_error(error);
  }
  return std::nullopt;
}

// Throws Failure (settings unusable) if the set-up of the unit would come to an out_mode that ends the
// process.
void require_out_mode(const SettingsArguments& arguments, const InspectSource& source) {
  ParamDocument document;
  open_document(source, document);
  fpu::MatchingSettings matching;
  if (!document.loaded || !fpu::load_matching_settings(matching, document, 0)) return;
  if (matching.out_mode == 0 || matching.out_mode == 2) return;

  // The same set-up with an out_mode that is known tells how far it comes.
  fpu::FeatureUnit trial;
  trial.document = std::move(document);
  trial.frameWidth = arguments.width;
  trial.frameHeight = arguments.height;
  trial.opened = true;
  param_child(param_root_child(trial.document, "matching"), "out_mode").node->make_scalar("0");
  try {
    const ChatterCapture quiet(ChatterCapture::Streams::kOutput);
    trial.init();
  } catch (const std::exception&) {
    return;
  }
  const bool reached = trial.mvcSettings.image_width != 0;
  if (!reached) return;
  throw Failure(ExitCode::kFileUnusable,
                Problem{"SOURCE: section `matching`, key `out_mode`", std::to_string(matching.out_mode),
                        "0 (all candidates of a keypoint) or 2 (only the best)", "write `out_mode: 2`"});
}

InspectSource make_source(const SettingsArguments& arguments) {
  if (arguments.preset) return InspectSource(*find_preset(*arguments.preset));
  if (!arguments.source) {
    throw Failure(ExitCode::kUsage, Problem{"inspect", "neither SOURCE nor --preset",
                                            "a parameter file, its text, or a built-in one", "see --help"});
  }
  InspectSource source(*arguments.source);
  source.require_settings();
  return source;
}

std::vector<NamedPath> inputs_of(const SettingsArguments& arguments) {
  std::vector<NamedPath> inputs;
  add_input(inputs, "SOURCE", arguments.source);
  return inputs;
}

Json points_json(const fpu::PatternPoint* points, std::size_t count) {
  Json array = Json::array();
  for (std::size_t i = 0; i < count; ++i) array.push_back(Json::array({points[i].x, points[i].y}));
  return array;
}

[[noreturn]] void fail_pattern(const std::string& found, const std::string& expected,
                               const std::string& remedy) {
  throw Failure(ExitCode::kFileUnusable, Problem{"SOURCE: section `RENO`", found, expected, remedy});
}

}  // namespace

void inspect_settings(const SettingsArguments& arguments) {
  DocumentTarget target(arguments.out, inputs_of(arguments));
  const InspectSource source = make_source(arguments);
  const bool sized = arguments.width > 0 && arguments.height > 0;
  if (sized) require_out_mode(arguments, source);
  const Detector detector =
      sized ? read_detector(source) : Detector{};  // no unit reads a file without a size
  fpu::FeatureUnit unit;
  const auto context = std::make_unique<CalibContext>();
  Json json;
  bool calib_loaded = false;
  {
    const MessagesToErrors redirected;
    const std::optional<std::int32_t> init = set_up(unit, arguments, source);
    json["init"] = init ? Json(*init) : Json(nullptr);
    calib_loaded = unit.document.loaded ? load_calib_settings(*context, unit.document, arguments.frame_width)
                                        : load_calib_settings(*context, source.path(), arguments.frame_width);
  }
  json["grid"] = grid_json(unit.grid);
  json["RENO"] = detector_json(detector);
  json["matching"] = matching_json(unit.matchingSettings);
  json["mvc"] = correction_json(unit.mvcSettings);
  json["vdet"] = check_json(unit.vdetSettings);
  json["calib_loaded"] = calib_loaded;
  json["calib"] = calib_json(*context);
  target.write(write_json(json));
}

void inspect_pattern(const SettingsArguments& arguments) {
  DocumentTarget target(arguments.out, inputs_of(arguments));
  const InspectSource source = make_source(arguments);
  fpu::RENO_Impl detector;
  {
    const MessagesToErrors redirected;
    ParamDocument document;
    if (const auto error = open_document(source, document)) {
      fail_pattern(error->message, "`section:` lines with indented `key: value` lines",
                   "correct the line that the message names");
    }
    try {
      detector.read(param_root_child(document, "RENO"));
    } catch (const std::exception& error) {
      fail_pattern(fmt::format("a seed that is no number ({})", error.what()),
                   "decimal numbers of 64 bits in `rndSeedMake` and `rndSeedSelect`",
                   "correct the seed or remove the line");
    }
  }
  const fpu::DetectorSettings& settings = detector.settings();
  if (settings.rnd_mode != 0 && settings.rnd_mode != 1) {
    fail_pattern(fmt::format("`rnd_mode` {}", settings.rnd_mode), "0 or 1", "write `rnd_mode: 0`");
  }
  if (settings.wta_k != 1) {
    fail_pattern(fmt::format("`wta_k` {}", settings.wta_k), "1, the only form of test that is carried out",
                 "write `wta_k: 1` or remove the line");
  }
  if (!detector.usable(arguments.width, arguments.height)) {
    fail_pattern(
        fmt::format("`patchSize` {}, a descriptor of {} bytes, {} levels", settings.patchSize,
                    settings.desc_bytes, settings.nlevels),
        fmt::format("a patch within {} x {} pixels with enough different places for a descriptor of 8 "
                    "to 504 bits, 1 to 20 levels, kernels up to 23",
                    arguments.width, arguments.height),
        "write `patchSize: 25`, `desc_bits: 256`, `nlevels: 1`, `filter_type: 14`");
  }
  const fpu::CandidatePattern candidates = detector.candidates();
  const fpu::ChainRules rules = fpu::chain_rules(settings);
  std::vector<fpu::PatternPoint> chain;
  {
    const MessagesToErrors redirected;
    std::ostringstream histogram;  // the file of that name is description's
    chain = fpu::select_chain(candidates, rules, histogram);
  }
  Json json;
  json["candidates"] = points_json(candidates.data(), candidates.size());
  json["chain"] = points_json(chain.data(), static_cast<std::size_t>(rules.bits) + 1);
  target.write(write_json(json));
}

}  // namespace twintrue::cli

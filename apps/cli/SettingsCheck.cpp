#include "apps/cli/SettingsCheck.h"

#include <fmt/format.h>

#include <exception>
#include <memory>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/FeatureChecks.h"
#include "apps/cli/KeyProblems.h"
#include "apps/cli/SearchChecks.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {
namespace {

void open_document(const SettingsSource& source, ParamDocument& document) {
  std::string reason = "the reader refused it";
  try {
    if (param_document_open(document, source.path())) return;
  } catch (const std::exception& error) {
    reason = error.what();
  }
  throw Failure(
      ExitCode::kFileUnusable,
      Problem{fmt::format("PARAMS: {}", source.name()), reason,
              "`section:` lines with indented `key: value` lines; ASCII text, blanks for indentation",
              "correct the line that the message names"});
}

}  // namespace

SettingsFacts check_settings(const SettingsSource& source, const LensFacts& lens) {
  ParamDocument document;
  open_document(source, document);
  KeyProblems problems(source);
  SettingsFacts facts;
  {
    // Loading the detector prints a line break.
    ChatterCapture quiet(ChatterCapture::Streams::kOutput);
    facts.cells = check_feature_sections(problems, document, lens);
    const auto context = std::make_unique<CalibContext>();
    check_search_sections(problems, document, lens.frame_width, *context);
    facts.failure_score_th = context->failure_score_th;
    facts.detection_ratio_th = context->detection_ratio_th;
    facts.error16_th = context->error16_th;
    facts.rank_last = context->rank_last;
  }
  if (!problems.all().empty()) throw Failure(ExitCode::kFileUnusable, problems.all());
  return facts;
}

}  // namespace twintrue::cli

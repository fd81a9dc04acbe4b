#include "apps/cli/checks/SettingsCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <string_view>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/checks/FeatureChecks.h"
#include "apps/cli/checks/KeyProblems.h"
#include "apps/cli/checks/SearchChecks.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {
namespace {

// Enough of a text to know it by.
std::string first_words(const std::string& text) {
  constexpr std::size_t kMost = 60;
  return text.size() <= kMost ? text : text.substr(0, kMost) + " ...";
}

// Other sections of a file are not the library's, and may hold anything.
bool is_library_section(const std::string& name) {
  constexpr std::string_view kSearch = "calib";
  for (const char* section : {"grid", "RENO", "matching", "mvc", "vdet"}) {
    if (name == section) return true;
  }
  return name.starts_with(kSearch) &&
         name.find_first_not_of("0123456789", kSearch.size()) == std::string::npos;
}

// A key without its colon makes text of its whole section, and all of the section's keys go unnoticed.
void check_sections_are_maps(KeyProblems& problems, ParamDocument& document) {
  if (param_is_none({"", &document.root})) return;
  if (!param_is_map({"", &document.root})) {
    problems.add_document(Reach::kResult, "no `section:` lines",
                          "sections such as `calib:` with indented `key: value` lines",
                          "start from the preset that comes with the program");
    return;
  }
  document.root.for_each_child([&problems](const std::string& key, const Yaml::Node& section) {
    const bool is_text = !section.text().empty();
    if (!is_library_section(key) || (!is_text && section.kind() != Yaml::Kind::kSequence)) return;
    problems.add_section(Reach::kResult, key,
                         is_text ? fmt::format("text: {}", first_words(section.text())) : "a list",
                         "indented lines of `key: value`", "look for a line without its colon");
  });
}

}  // namespace

ParamDocument open_settings(const SettingsSource& source) {
  ParamDocument document;
  std::string reason = "the reader refused it";
  try {
    if (param_document_open(document, source.path())) return document;
    // The library keeps to itself what is wrong with a text.
    if (!source.is_file()) Yaml::parse_text(document.root, source.path().data(), source.path().size());
  } catch (const std::filesystem::filesystem_error& error) {
    throw Failure(ExitCode::kInputUnreadable,
                  Problem{fmt::format("PARAMS: {}", source.name()), error.code().message(),
                          "a file that can be read to its end", "copy it again"});
  } catch (const std::exception& error) {
    reason = error.what();
  }
  throw Failure(
      ExitCode::kFileUnusable,
      Problem{fmt::format("PARAMS: {}", source.name()), reason,
              "`section:` lines with indented `key: value` lines; ASCII text, blanks for indentation",
              "correct the line that the message names"});
}

SettingsFacts check_settings(const SettingsSource& source, const LensFacts& lens, Reach reach) {
  ParamDocument document = open_settings(source);
  return check_settings(source, document, lens, reach);
}

SettingsFacts check_settings(const SettingsSource& source, ParamDocument& document, const LensFacts& lens,
                             Reach reach) {
  KeyProblems problems(source);
  check_sections_are_maps(problems, document);
  problems.fail_if_any_stops(reach);  // keys that went unnoticed are not told one by one
  SettingsFacts facts;
  {
    // Loading the detector prints a line break.
    const ChatterCapture quiet(ChatterCapture::Streams::kOutput);
    facts.cells = check_feature_sections(problems, document, lens);
  }
  const auto context = std::make_unique<CalibContext>();
  check_search_sections(problems, document, lens.frame_width, *context);
  problems.fail_if_any_stops(reach);
  facts.failure_score_th = context->failure_score_th;
  facts.detection_ratio_th = context->detection_ratio_th;
  facts.error16_th = context->error16_th;
  facts.rank_last = context->rank_last;
  facts.levels = context->num_levels[0];
  facts.last_retry = std::max(context->retry_count, 0);
  return facts;
}

void check_search_settings(const SettingsSource& source, ParamDocument& document, const LensFacts& lens) {
  KeyProblems problems(source);
  const auto context = std::make_unique<CalibContext>();
  check_search_sections(problems, document, lens.frame_width, *context);
  problems.fail_if_any_stops(Reach::kSearch);
}

}  // namespace twintrue::cli

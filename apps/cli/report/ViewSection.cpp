#include <fmt/format.h>

#include "apps/cli/report/Plot.h"
#include "apps/cli/report/Sections.h"

namespace twintrue::cli {
namespace {

// Matches that lie in what a view shows.
std::vector<const SeenMatch*> in_view(const Misalignment& misalignment, const DirectionView& view) {
  std::vector<const SeenMatch*> found;
  for (const SeenMatch* match : drawable(misalignment)) {
    const Point& at = match->direction;
    if (match->ahead && at[0] >= view.low[0] && at[0] <= view.high[0] && at[1] >= view.low[1] &&
        at[1] <= view.high[1]) {
      found.push_back(match);
    }
  }
  return found;
}

std::string off_by(const Misalignment& misalignment, double pixels) {
  return fmt::format("{:.2f} px ({:.1f}′)", pixels, misalignment.arc_minutes(pixels));
}

std::string words_for(const PageFacts& facts, const std::vector<const SeenMatch*>& matches, Lens lens) {
  if (matches.empty()) return "no match lies here";
  const Summary summary = summary_of(matches, lens);
  return fmt::format("vertical misalignment {}, median of {}", off_by(facts.misalignment, summary.median),
                     count_of(summary.count, "match", "matches"));
}

void add_picture(Markup& page, const PageFacts& facts, const DirectionView& view, Lens lens) {
  const PagePicture& picture = lens == Lens::kGiven ? view.given : *view.corrected;
  const char* file = lens == Lens::kGiven ? "as given" : "corrected";
  const std::string words = words_for(facts, in_view(facts.misalignment, view), lens);
  page.open("div");
  page.leaf("h3", fmt::format("{}, lens file {}", view.name, file));
  page.empty("img",
             {{"src", picture.uri},
              {"width", std::to_string(picture.width)},
              {"height", std::to_string(picture.height)},
              {"alt", fmt::format("Anaglyph {} under the lens file {}: {}.", view.name, file, words)}});
  page.leaf("p", words, {{"class", "muted"}}).close();
}

std::string what_views_show(const PageFacts& facts) {
  const auto matches = judged(facts.misalignment);
  if (matches.empty()) {
    return "there are no matches to tell by how much the eyes are off, and no corrections to compare with.";
  }
  const Summary before = summary_of(matches, Lens::kGiven);
  const Summary after = summary_of(matches, Lens::kCorrected);
  std::string words =
      fmt::format("over the whole picture the median vertical misalignment goes from {} to {}.",
                  off_by(facts.misalignment, before.median), off_by(facts.misalignment, after.median));
  if (exit_code_of(facts.report) != ExitCode::kCalibrated) {
    return words + " The verdict says not to rely on the corrected picture.";
  }
  if (after.median > before.median) words += " Most of the picture was as good before.";
  if (facts.report.evidence) {
    const Evidence& evidence = *facts.report.evidence;
    words += fmt::format(
        " Matches scatter by {:.2f} px by themselves, being whole pixels; the pair under the corrected lens "
        "file is expected to be good to {:.2g} px.",
        evidence.noise, evidence.fit.expected_error);
  }
  return words;
}

void add_preview(Markup& page, const FramePreview& preview, const RunReport& report) {
  page.open("figure", {{"class", "single"}});
  page.leaf("h3", "The frame");
  const std::string is =
      fmt::format("mean brightness {:.0f} of 255, standard deviation {:.0f}", preview.mean, preview.spread);
  page.empty("img", {{"src", preview.picture.uri},
                     {"width", std::to_string(preview.picture.width)},
                     {"height", std::to_string(preview.picture.height)},
                     {"alt", fmt::format("The frame {} as it was read: {}.", report.frame_path, is)}});
  constexpr double kDark = 40.0;
  constexpr double kFlat = 15.0;
  std::string words = is + " within both circles";
  if (preview.mean < kDark) {
    words += "; it is dark.";
  } else if (preview.spread < kFlat) {
    words += "; it is nearly uniform, so there is little to find.";
  } else {
    words += "; brightness and contrast alone don't explain why too little was found.";
  }
  add_caption(
      page, "two round pictures beside each other that fill their circles, sharp and with texture all over.",
      words);
  page.close();
}

}  // namespace

void add_views(Markup& page, const PageFacts& facts) {
  if (facts.preview) {
    page.leaf("h2", "What the run saw");
    add_preview(page, *facts.preview, facts.report);
  }
  if (facts.views.empty()) return;
  const bool compares = facts.views.front().corrected.has_value();
  page.leaf("h2", compares ? "What a viewer sees, before and after" : "What a viewer sees");
  page.open("figure");
  // Straight ahead first.
  page.open("div", {{"class", "pair views"}});
  for (const std::size_t i : {1U, 0U, 2U}) {
    add_picture(page, facts, facts.views[i], Lens::kGiven);
    if (compares) add_picture(page, facts, facts.views[i], Lens::kCorrected);
  }
  page.close();
  add_caption(
      page,
      "fringes above and below things, the left eye's in red, the right eye's in cyan. Fringes at "
      "their left and right are depth and belong there; those above and below are what tires a "
      "viewer. All pictures are parts of one flat view straight ahead, in which both eyes see a thing "
      "in the same row at any distance if the lens file is right.",
      what_views_show(facts));
  page.close();
}

}  // namespace twintrue::cli

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "apps/cli/report/Plot.h"
#include "apps/cli/report/Sections.h"
#include "verdict/Spread.h"

namespace twintrue::cli {
namespace {

constexpr double kPercent = 100.0;

std::string percent_of(double share) { return fmt::format("{:.0f} %", kPercent * share); }

// ---- disparity across, before and after

void add_across(Markup& page, const Misalignment& misalignment) {
  std::vector<double> sizes;
  for (const SeenMatch* match : drawable(misalignment)) {
    sizes.push_back(std::abs(match->before));
    sizes.push_back(std::abs(match->after));
  }
  constexpr double kNarrowest = 2.0;
  const double end = round_up(std::max(quantile_of(sizes, 0.95), kNarrowest));
  constexpr std::size_t kClasses = 61;  // one of them about 0
  Histogram before(-end, end, kClasses);
  Histogram after(-end, end, kClasses);
  for (const SeenMatch* match : judged(misalignment)) {
    before.add(match->before);
    after.add(match->after);
  }
  PlotArea area;
  area.top = 22.0;
  area.x_low = -end;
  area.x_high = end;
  area.y_high = 1.08 * std::max(before.largest_share(), after.largest_share());
  const auto matches = judged(misalignment);
  const Summary was = summary_of(matches, Lens::kGiven);
  const Summary is = summary_of(matches, Lens::kCorrected);
  const std::string shares = fmt::format("{} of the matches lie within {:g} px before and {} after",
                                         percent_of(was.fitting), kFitting, percent_of(is.fitting));
  open_drawing(page, 236.0, "Histograms", shares);
  draw_axes(page, area, "disparity across the epipolar plane, px", "share of the matches");
  draw_histogram(page, area, before, "before");
  draw_histogram(page, area, after, "after");
  page.close();
  page.open("div", {{"class", "keys"}});
  add_key(page, "before", "lens file as given");
  add_key(page, "after", "corrected lens file");
  page.close();
  add_caption(page,
              "a narrow peak at 0 after the corrections. Two peaks, or a broad foot, mean that parts of the "
              "picture want different corrections.",
              fmt::format("{}; median {:.2f} px before and {:.2f} px after, nine of ten within {:.2f} px and "
                          "{:.2f} px. {} before and {} after lie beyond the axis.",
                          shares, was.median, is.median, was.most, is.most,
                          count_of(before.beyond(), "match", "matches"), after.beyond()));
}

// ---- where matches lie

constexpr double kRadius = 92.0;
constexpr double kMiddleY = 112.0;
constexpr std::array<double, 2> kMiddleX{100.0, 300.0};
constexpr std::size_t kMostDots = 8000;  // more would be seen no better, and make the page large

enum class Kind { kFit, kMisfit, kOut };

Kind kind_of(const SeenMatch& match) {
  if (match.use == SeenMatch::Use::kGraphics || match.use == SeenMatch::Use::kRim) return Kind::kOut;
  return std::abs(match.after) < kFitting ? Kind::kFit : Kind::kMisfit;
}

std::string dots_of(const Misalignment& misalignment, std::size_t eye, Kind kind, std::size_t step) {
  const Circle& circle = misalignment.circles[eye];
  std::string path;
  for (std::size_t i = 0; i < misalignment.matches.size(); i += step) {
    const SeenMatch& match = misalignment.matches[i];
    if (kind_of(match) != kind) continue;
    const double x = kMiddleX[eye] + (match.at[eye][0] - circle.centre[0]) / circle.radius * kRadius;
    const double y = kMiddleY + (match.at[eye][1] - circle.centre[1]) / circle.radius * kRadius;
    path += kind == Kind::kMisfit ? fmt::format("M{} {}l2 2m0-2l-2 2", drawn(x - 1.0), drawn(y - 1.0))
                                  : fmt::format("M{} {}h0", drawn(x), drawn(y));
  }
  return path;
}

void add_places(Markup& page, const PageFacts& facts) {
  const Misalignment& misalignment = facts.misalignment;
  const std::size_t step = (misalignment.matches.size() + kMostDots - 1) / kMostDots;
  std::array<std::size_t, 3> counts{};
  for (const SeenMatch& match : misalignment.matches) ++counts[static_cast<std::size_t>(kind_of(match))];
  const std::string told = fmt::format(
      "{} fit within {:g} px, {} do not, and {} near the rim or on burned-in graphics are left out",
      count_of(counts[0], "match", "matches"), kFitting, counts[1], counts[2]);
  open_drawing(page, 210.0, "Where matches lie", told);
  constexpr std::array<std::pair<Kind, const char*>, 3> kStyles{
      {{Kind::kOut, "dot-out"}, {Kind::kFit, "dot-fit"}, {Kind::kMisfit, "dot-misfit"}}};
  for (const std::size_t eye : {0U, 1U}) {
    page.empty(
        "circle",
        {{"cx", drawn(kMiddleX[eye])}, {"cy", drawn(kMiddleY)}, {"r", drawn(kRadius)}, {"class", "rim"}});
    draw_text(page, kMiddleX[eye], 12.0, eye == 0 ? "right eye (left half)" : "left eye (right half)", "mid");
    for (const auto& [kind, style] : kStyles) {
      const std::string path = dots_of(misalignment, eye, kind, step);
      if (!path.empty()) page.empty("path", {{"d", path}, {"class", style}});
    }
  }
  page.close().open("div", {{"class", "keys"}});
  add_key(page, "dot-fit", "fits");
  add_key(page, "dot-misfit", "does not fit");
  add_key(page, "dot-out", "left out");
  page.close();
  std::string here = told + ".";
  if (step > 1) here += fmt::format(" One in {} is drawn.", step);
  if (facts.report.evidence) {
    here += fmt::format(" Fitting ones lie in {} of the picture's fields.",
                        percent_of(facts.report.evidence->coverage));
  }
  add_caption(page,
              "dots all over both circles. Empty parts are known by their neighbours alone; crosses in one "
              "place are a thing that moved, repeats itself or mirrors.",
              here);
}

// ---- how far things are away

std::string metres(double distance) {
  return std::isfinite(distance) ? fmt::format("{:.2g} m", distance) : "beyond measure";
}

void add_parallax(Markup& page, const PageFacts& facts) {
  std::vector<double> parallaxes;
  std::vector<double> distances;
  for (const SeenMatch* match : drawable(facts.misalignment)) {
    if (std::abs(match->after) >= kFitting) continue;
    parallaxes.push_back(match->parallax);
    distances.push_back(match->distance);
  }
  page.leaf("h3", "How depth is spread");
  if (parallaxes.empty()) {
    page.leaf("p", "No match fits, so nothing is known of depth.");
    return;
  }
  double low = quantile_of(parallaxes, 0.01);
  double high = quantile_of(parallaxes, 0.99);
  const double tenth = quantile_of(parallaxes, 0.1);
  const double ninth = quantile_of(parallaxes, 0.9);
  const double margin = std::max(0.05 * (high - low), 0.5);
  low = std::min(low - margin, 0.0);
  high += margin;
  constexpr std::size_t kClasses = 50;
  Histogram histogram(low, high, kClasses);
  for (const double parallax : parallaxes) histogram.add(parallax);
  PlotArea area;
  area.top = 22.0;
  area.x_low = low;
  area.x_high = high;
  area.y_high = 1.08 * histogram.largest_share();
  const double spread = facts.report.evidence ? facts.report.evidence->parallax_spread : ninth - tenth;
  const std::string told =
      fmt::format("parallax spreads over {:.4g} px from its 10th to its 90th percentile", spread);
  open_drawing(page, 236.0, "Parallax", told);
  draw_axes(page, area, "parallax, px (0: far away; larger: nearer)", "share of the fitting matches");
  draw_histogram(page, area, histogram, "after");
  for (const double mark : {tenth, ninth}) {
    page.empty("line", {{"x1", drawn(area.x(mark))},
                        {"x2", drawn(area.x(mark))},
                        {"y1", drawn(area.top)},
                        {"y2", drawn(area.top + area.height)},
                        {"class", "mark"}});
  }
  page.close();
  bool too_little = false;
  for (const VerdictReason& reason : verdict_of(facts.report).reasons) {
    too_little = too_little || reason.key == "no_parallax";
  }
  add_caption(page,
              "a broad spread. Pan and offset x shift the picture sideways as distance does, so they rest on "
              "near and far things in one frame; a single narrow peak leaves them open.",
              fmt::format("{} (dashed). The nearest tenth lies within {}, half within {}.{}", told,
                          metres(quantile_of(distances, 0.1)), metres(quantile_of(distances, 0.5)),
                          too_little ? " That is too little to calibrate by." : ""));
}

}  // namespace

void add_histogram(Markup& page, const PageFacts& facts) {
  if (drawable(facts.misalignment).empty()) return;
  page.leaf("h2", "How far matches are off").open("figure", {{"class", "single"}});
  add_across(page, facts.misalignment);
  page.close();
}

void add_matches(Markup& page, const PageFacts& facts) {
  if (facts.misalignment.matches.empty()) return;
  page.leaf("h2", "What the result rests on").open("div", {{"class", "pair"}});
  page.open("figure").leaf("h3", "Where matches lie");
  add_places(page, facts);
  page.close().open("figure");
  add_parallax(page, facts);
  page.close().close();
}

}  // namespace twintrue::cli

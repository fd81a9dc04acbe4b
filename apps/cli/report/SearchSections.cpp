#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <optional>

#include "apps/cli/report/Plot.h"
#include "apps/cli/report/Sections.h"

namespace twintrue::cli {
namespace {

struct CountBar {
  std::string label;
  std::optional<std::int32_t> count;
};

std::vector<CountBar> bars_of(const RunCounts& counts) {
  return {{"keypoints, right eye", counts.left_half_keypoints},
          {"keypoints, left eye", counts.right_half_keypoints},
          {"matches", counts.records},
          {"accepted", counts.accepted},
          {"in the search", counts.searched}};
}

void draw_bar(Markup& page, double y, const CountBar& bar, double unit) {
  constexpr double kLeft = 128.0;
  draw_text(page, kLeft - 6.0, y + 13.0, bar.label, "end");
  if (!bar.count) {
    draw_text(page, kLeft + 4.0, y + 13.0, "not reached");
    return;
  }
  const double length = unit * *bar.count;
  page.empty(
      "rect",
      {{"x", drawn(kLeft)}, {"y", drawn(y)}, {"width", drawn(length)}, {"height", "17"}, {"class", "d2"}});
  draw_text(page, kLeft + length + 4.0, y + 13.0, std::to_string(*bar.count));
}

// ---- the search

// The levels of a retry that ran. Retries weigh matches differently, so only scores of one of them compare.
struct RetryCourse {
  std::int32_t retry = 0;
  std::vector<double> scores;
  std::int64_t candidates = 0;
  double best = 0.0;
};

std::vector<RetryCourse> courses_of(const RunRecord& record) {
  std::vector<RetryCourse> courses;
  for (const LevelRecord& level : record.levels) {
    if (level.skipped || !std::isfinite(level.best_score)) continue;
    if (courses.empty() || courses.back().retry != level.retry) courses.push_back({level.retry, {}, 0, 0.0});
    RetryCourse& course = courses.back();
    course.scores.push_back(level.best_score);
    course.candidates += level.candidates;
    course.best = std::max(course.best, level.best_score);
  }
  // Shares of nothing can't be drawn.
  std::erase_if(courses, [](const RetryCourse& course) { return !(course.best > 0.0); });
  return courses;
}

void draw_one_course(Markup& page, const PlotArea& area, const RetryCourse& course, double at) {
  std::string path;
  const auto y_of = [&](double score) { return area.y(score / course.best); };
  for (std::size_t i = 0; i < course.scores.size(); ++i) {
    const double x = area.x(at + static_cast<double>(i));
    path += fmt::format("{}{} {}", i == 0 ? "M" : "L", drawn(x), drawn(y_of(course.scores[i])));
    page.empty("circle",
               {{"cx", drawn(x)}, {"cy", drawn(y_of(course.scores[i]))}, {"r", "2.5"}, {"class", "point"}});
  }
  page.empty("path", {{"d", path}, {"class", "course"}});
  draw_text(page, area.x(at + 0.5 * static_cast<double>(course.scores.size() - 1)),
            area.top + area.height + 17.0, fmt::format("retry {}", course.retry), "mid");
}

void draw_courses(Markup& page, const std::vector<RetryCourse>& courses) {
  double low = 1.0;
  double places = -1.0;
  for (const RetryCourse& course : courses) {
    for (const double score : course.scores) low = std::min(low, score / course.best);
    places += static_cast<double>(course.scores.size()) + 1.0;
  }
  PlotArea area;
  area.top = 22.0;
  area.x_low = -0.7;
  area.x_high = places - 0.3;
  area.y_low = std::max(low - 0.05 * (1.0 - low) - 0.002, 0.0);
  area.y_high = 1.0 + 0.05 * (1.0 - low) + 0.002;
  open_drawing(page, 226.0, "Course of the search",
               fmt::format("best score of each level, of {}", count_of(courses.size(), "retry", "retries")));
  for (const double value : ticks(area.y_low, area.y_high, 5)) {
    page.empty("line", {{"x1", drawn(area.left)},
                        {"x2", drawn(area.left + area.width)},
                        {"y1", drawn(area.y(value))},
                        {"y2", drawn(area.y(value))},
                        {"class", "grid"}});
    draw_text(page, area.left - 4.0, area.y(value) + 4.0, fmt::format("{:.4g} %", 100.0 * value), "end");
  }
  double at = 0.0;
  for (const RetryCourse& course : courses) {
    draw_one_course(page, area, course, at);
    at += static_cast<double>(course.scores.size()) + 1.0;
  }
  draw_text(page, area.left, area.top - 8.0, "best score of each level, of the retry's best");
  page.close();
}

std::string what_the_search_shows(const std::vector<RetryCourse>& courses, const RunRecord& record) {
  std::size_t levels = 0;
  std::int64_t candidates = 0;
  for (const RetryCourse& course : courses) {
    levels += course.scores.size();
    candidates += course.candidates;
  }
  std::string words = fmt::format("{} in {} tried {} candidates.", count_of(levels, "level", "levels"),
                                  count_of(courses.size(), "retry", "retries"), candidates);
  for (const RetryRecord& retry : record.retries) {
    words += fmt::format(" Retry {} ended with score {:.6g}, {} within 4 px and {} within 16.", retry.retry,
                         retry.score, count_of(static_cast<std::size_t>(retry.within4), "match", "matches"),
                         retry.within16);
  }
  return words;
}

void add_row(Markup& page, const char* cell, std::initializer_list<std::string> words) {
  page.open("tr");
  for (const std::string& word : words) page.leaf(cell, word, {{"class", "n"}});
  page.close();
}

void add_levels(Markup& page, const RunRecord& record) {
  page.open("details").leaf("summary", "Every level");
  page.open("div", {{"class", "wide"}}).open("table");
  add_row(page, "th", {"Retry", "Level", "Candidates", "Best score"});
  for (const LevelRecord& level : record.levels) {
    add_row(page, "td",
            {std::to_string(level.retry), std::to_string(level.level),
             level.skipped ? "skipped" : std::to_string(level.candidates),
             level.skipped ? "-" : fmt::format("{:.6g}", level.best_score)});
  }
  page.close().close().close();
}

}  // namespace

void add_counts(Markup& page, const PageFacts& facts) {
  const RunReport& report = facts.report;
  const double wanted =
      std::ceil(report.settings.detection_ratio_th * static_cast<double>(report.settings.places()));
  double most = std::max(wanted, 1.0);
  std::string told;
  for (const CountBar& bar : bars_of(report.counts)) {
    if (bar.count) most = std::max(most, static_cast<double>(*bar.count));
    told += fmt::format("{}{}: {}", told.empty() ? "" : ", ", bar.label,
                        bar.count ? std::to_string(*bar.count) : "not reached");
  }
  constexpr double kLeft = 128.0;
  constexpr double kWidth = 215.0;
  const double unit = kWidth / most;
  page.leaf("h2", "What was found").open("figure", {{"class", "single"}});
  open_drawing(page, 150.0, "Counts", told);
  double y = 6.0;
  for (const CountBar& bar : bars_of(report.counts)) {
    draw_bar(page, y, bar, unit);
    y += 24.0;
  }
  page.empty("line", {{"x1", drawn(kLeft + unit * wanted)},
                      {"x2", drawn(kLeft + unit * wanted)},
                      {"y1", "0"},
                      {"y2", drawn(y)},
                      {"class", "wanted"}});
  draw_text(page, kLeft + unit * wanted, y + 14.0, fmt::format("{:.0f} wanted", wanted), "mid");
  page.close();
  const bool few = report.status == TWINTRUE_TOO_FEW_MATCHES;
  add_caption(page, "bars that go beyond the line: each step hands on what the next one lives on.",
              fmt::format("{}. {}", told,
                          few ? verdict_of(report).reasons.front().found
                              : fmt::format("The settings want {:.0f}.", wanted)));
  page.close();
}

void add_search(Markup& page, const PageFacts& facts) {
  const std::vector<RetryCourse> courses = courses_of(facts.record);
  if (courses.empty()) return;
  page.leaf("h2", "How the search went").open("figure", {{"class", "single"}});
  draw_courses(page, courses);
  add_caption(page,
              "lines that end level: finer steps change nothing more. A line that still climbs at its end "
              "wants more levels. Finer levels ask for closer matches, so a score may also sink a little.",
              what_the_search_shows(courses, facts.record));
  add_levels(page, facts.record);
  page.close();
}

}  // namespace twintrue::cli

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>

#include "apps/cli/report/Plot.h"
#include "apps/cli/report/Sections.h"
#include "verdict/Spread.h"

namespace twintrue::cli {
namespace {

constexpr int kCellsAcross = 22;    // of a circle
constexpr std::size_t kHeld = 3;    // matches that a cell needs to say something
constexpr double kRadius = 92.0;    // of a circle in the drawing
constexpr double kMiddleY = 112.0;  // ... and where its centre lies
constexpr std::array<double, 2> kMiddleX{100.0, 300.0};
constexpr int kColours = 11;
constexpr std::array<const char*, 2> kEyes{"right eye (left half)", "left eye (right half)"};

// Medians of what lies in a cell of one eye's circle.
struct Cell {
  std::vector<double> before;
  std::vector<double> after;
  std::array<std::array<std::vector<double>, 2>, 2> arrows;  // by lens file and by axis

  std::vector<double>& across(Lens lens) { return lens == Lens::kGiven ? before : after; }
};
using Place = std::pair<int, int>;  // column and row from the centre
using Cells = std::map<Place, Cell>;

int place_of(double offset, double radius) {
  return static_cast<int>(std::floor(offset / radius * (kCellsAcross / 2.0)));
}

Cells cells_of(const Misalignment& misalignment, std::size_t eye) {
  Cells cells;
  const Circle& circle = misalignment.circles[eye];
  for (const SeenMatch* match : drawable(misalignment)) {
    const double dx = match->at[eye][0] - circle.centre[0];
    const double dy = match->at[eye][1] - circle.centre[1];
    if (!(std::hypot(dx, dy) <= circle.radius)) continue;
    Cell& cell = cells[{place_of(dx, circle.radius), place_of(dy, circle.radius)}];
    cell.before.push_back(match->before);
    cell.after.push_back(match->after);
    for (std::size_t lens = 0; lens < 2; ++lens) {
      for (std::size_t axis = 0; axis < 2; ++axis) {
        cell.arrows[lens][axis].push_back(match->arrow[lens][eye][axis]);
      }
    }
  }
  std::erase_if(cells, [](const auto& entry) { return entry.second.before.size() < kHeld; });
  return cells;
}

// What both maps share.
struct Maps {
  std::array<Cells, 2> eyes;
  double scale = 1.0;          // pixels at the ends of the colours
  double magnification = 1.0;  // of arrows, against the circles
};

std::vector<double> medians_of(Maps& maps, Lens lens) {
  std::vector<double> medians;
  for (Cells& cells : maps.eyes) {
    for (auto& [place, cell] : cells) medians.push_back(quantile_of(cell.across(lens)));
  }
  return medians;
}

Maps maps_of(const Misalignment& misalignment) {
  Maps maps{{cells_of(misalignment, 0), cells_of(misalignment, 1)}, 1.0, 1.0};
  std::vector<double> sizes;
  for (const Lens lens : {Lens::kGiven, Lens::kCorrected}) {
    for (const double median : medians_of(maps, lens)) sizes.push_back(std::abs(median));
  }
  if (sizes.empty()) return maps;
  constexpr double kFinest = 0.5;  // pixels: below that colours would show noise
  maps.scale = round_up(2.0 * std::max(quantile_of(sizes, 0.9), kFinest)) / 2.0;
  // The longest arrows are as long as a cell and a half.
  const double cell = 2.0 * misalignment.circles[0].radius / kCellsAcross;
  const double magnification = 1.5 * cell / maps.scale;
  maps.magnification = std::max(1.0, magnification >= 10.0 ? round_up(magnification) / 2.0 : magnification);
  return maps;
}

int colour_of(double value, double scale) {
  const double place = std::clamp(value / scale, -1.0, 1.0);
  return static_cast<int>(std::lround((place + 1.0) / 2.0 * (kColours - 1)));
}

void draw_circle(Markup& page, std::size_t eye) {
  page.empty(
      "circle",
      {{"cx", drawn(kMiddleX[eye])}, {"cy", drawn(kMiddleY)}, {"r", drawn(kRadius)}, {"class", "rim"}});
  draw_text(page, kMiddleX[eye], 12.0, kEyes[eye], "mid");
}

void draw_cells(Markup& page, Maps& maps, std::size_t eye, Lens lens) {
  constexpr double kSide = 2.0 * kRadius / kCellsAcross;
  // One path for each colour.
  std::array<std::string, kColours> paths;
  for (auto& [place, cell] : maps.eyes[eye]) {
    const int colour = colour_of(quantile_of(cell.across(lens)), maps.scale);
    paths[static_cast<std::size_t>(colour)] +=
        fmt::format("M{} {}h{}v{}h-{}z", drawn(kMiddleX[eye] + place.first * kSide),
                    drawn(kMiddleY + place.second * kSide), drawn(kSide), drawn(kSide), drawn(kSide));
  }
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (!paths[i].empty()) page.empty("path", {{"d", paths[i]}, {"class", fmt::format("d{}", i)}});
  }
}

void draw_arrows(Markup& page, Maps& maps, const Misalignment& misalignment, std::size_t eye, Lens lens) {
  constexpr double kSide = 2.0 * kRadius / kCellsAcross;
  const double unit = kRadius / misalignment.circles[eye].radius * maps.magnification;
  const double longest = 1.5 * kSide;
  std::string path;
  for (auto& [place, cell] : maps.eyes[eye]) {
    auto& axes = cell.arrows[lens == Lens::kGiven ? 0 : 1];
    double dx = quantile_of(axes[0]) * unit;
    double dy = quantile_of(axes[1]) * unit;
    const double length = std::hypot(dx, dy);
    if (!(length >= 0.8)) continue;  // no more than its own stroke
    if (length > longest) {
      dx *= longest / length;
      dy *= longest / length;
    }
    const double x = kMiddleX[eye] + (place.first + 0.5) * kSide - dx / 2.0;
    const double y = kMiddleY + (place.second + 0.5) * kSide - dy / 2.0;
    // The barbs of the head stand a third of the way back.
    path += fmt::format("M{} {}l{} {}m{} {}L{} {}l{} {}", drawn(x), drawn(y), drawn(dx), drawn(dy),
                        drawn(-0.35 * dx - 0.22 * dy), drawn(-0.35 * dy + 0.22 * dx), drawn(x + dx),
                        drawn(y + dy), drawn(-0.35 * dx + 0.22 * dy), drawn(-0.35 * dy - 0.22 * dx));
  }
  if (!path.empty()) page.empty("path", {{"d", path}, {"class", "arrows"}});
}

std::string place_in_words(const Place& place) {
  const double x = place.first + 0.5;
  const double y = place.second + 0.5;
  if (std::hypot(x, y) < kCellsAcross / 6.0) return "in the middle";
  const bool side = std::abs(x) > 0.41 * std::abs(y);
  const bool height = std::abs(y) > 0.41 * std::abs(x);
  return fmt::format("at the {}{}{}", height ? (y < 0 ? "upper" : "lower") : "", height && side ? " " : "",
                     side ? (x < 0 ? "left" : "right") : (height ? " edge" : ""));
}

// Of the cells' medians, without their signs.
struct MapSummary {
  double usual = 0.0;  // their median
  double most = 0.0;   // nine of ten cells are within
  double worst = 0.0;  // with its sign
  std::string where;
  std::size_t cells = 0;
};

MapSummary summary_of_map(Maps& maps, Lens lens) {
  MapSummary summary;
  std::vector<double> sizes;
  for (std::size_t eye = 0; eye < 2; ++eye) {
    for (auto& [place, cell] : maps.eyes[eye]) {
      const double median = quantile_of(cell.across(lens));
      sizes.push_back(std::abs(median));
      if (std::abs(median) <= std::abs(summary.worst)) continue;
      summary.worst = median;
      summary.where =
          fmt::format("{} of the {} eye's circle", place_in_words(place), eye == 0 ? "right" : "left");
    }
  }
  summary.cells = sizes.size();
  if (sizes.empty()) return summary;
  summary.usual = quantile_of(sizes);
  summary.most = quantile_of(sizes, 0.9);
  return summary;
}

void add_map(Markup& page, Maps& maps, const Misalignment& misalignment, Lens lens) {
  const char* file = lens == Lens::kGiven ? "Lens file as given" : "Corrected lens file";
  const MapSummary summary = summary_of_map(maps, lens);
  page.open("div").leaf("h3", file);
  open_drawing(page, 210.0, file,
               fmt::format("map of the disparity across over both circles; of {} half are within {:.2f} px "
                           "and nine of ten within {:.2f} px; largest {:+.2f} px {}",
                           count_of(summary.cells, "cell", "cells"), summary.usual, summary.most,
                           summary.worst, summary.where));
  for (const std::size_t eye : {0U, 1U}) {
    draw_cells(page, maps, eye, lens);
    draw_circle(page, eye);
    draw_arrows(page, maps, misalignment, eye, lens);
  }
  page.close().close();
}

void add_legend(Markup& page, const Maps& maps) {
  page.open("div", {{"class", "single"}});
  open_drawing(page, 42.0, "Legend",
               fmt::format("colours from blue, -{0:g} px, over grey, 0, to orange, +{0:g} px", maps.scale));
  constexpr double kLeft = 30.0;
  constexpr double kStep = 340.0 / kColours;
  for (int i = 0; i < kColours; ++i) {
    page.empty("rect", {{"x", drawn(kLeft + i * kStep)},
                        {"y", "4"},
                        {"width", drawn(kStep)},
                        {"height", "14"},
                        {"class", fmt::format("d{}", i)}});
  }
  for (const double share : {-1.0, -0.5, 0.0, 0.5, 1.0}) {
    const double middle = kLeft + kStep / 2.0 + (share + 1.0) / 2.0 * (kColours - 1) * kStep;
    draw_text(page, middle, 33.0, share == 0.0 ? "0 px" : fmt::format("{:+g}", share * maps.scale), "mid");
  }
  page.close();
  page.leaf("p",
            fmt::format(
                "Disparity across the epipolar plane, median of each cell; beyond ±{:g} px the last "
                "colour. Arrows: from where the other eye's ray asks for a thing to where it is, "
                "{:.0f} times as long as in the frame, cut off at a cell and a half. Cells of fewer than {} "
                "matches are left blank.",
                maps.scale, maps.magnification, kHeld),
            {{"class", "muted"}});
  page.close();
}

}  // namespace

void add_maps(Markup& page, const PageFacts& facts) {
  Maps maps = maps_of(facts.misalignment);
  if (maps.eyes[0].empty()) return;
  page.leaf("h2", "Where the eyes disagree").open("figure").open("div", {{"class", "pair"}});
  add_map(page, maps, facts.misalignment, Lens::kGiven);
  add_map(page, maps, facts.misalignment, Lens::kCorrected);
  page.close();
  add_legend(page, maps);
  const MapSummary before = summary_of_map(maps, Lens::kGiven);
  const MapSummary after = summary_of_map(maps, Lens::kCorrected);
  const bool pattern = facts.report.evidence && after.most > 2.0 * facts.report.evidence->noise;
  add_caption(page,
              "an even grey under the corrected lens file. A side, ring or corner that keeps a colour there "
              "is something that "
              "no turn or shift of the eyes explains: another lens file, a thing that moved, or eyes of "
              "different scale.",
              fmt::format("half of the cells are within {:.2f} px before and {:.2f} px after, nine of ten "
                          "within {:.2f} px and {:.2f} px; the one farthest off after has {:+.2f} px, {}.{}",
                          before.usual, after.usual, before.most, after.most, after.worst, after.where,
                          pattern ? " That is more than the matches scatter by themselves." : ""));
  page.close();
}

}  // namespace twintrue::cli

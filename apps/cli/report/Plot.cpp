#include "apps/cli/report/Plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace twintrue::cli {
namespace {

constexpr double kLetter = 4.0;  // from the middle of a letter to its foot

void draw_line(Markup& page, double x0, double y0, double x1, double y1, const char* style) {
  page.empty("line",
             {{"x1", drawn(x0)}, {"y1", drawn(y0)}, {"x2", drawn(x1)}, {"y2", drawn(y1)}, {"class", style}});
}

}  // namespace

double round_up(double value) {
  if (!std::isfinite(value) || value <= 0.0) return 1.0;
  const double power = std::pow(10.0, std::floor(std::log10(value)));
  for (const double step : {1.0, 2.0, 5.0}) {
    if (step * power >= value) return step * power;
  }
  return 10.0 * power;
}

std::vector<double> ticks(double low, double high, int about) {
  const double step = round_up((high - low) / about);
  std::vector<double> places;
  const double first = std::ceil(low / step - 1e-9);
  const double last = std::floor(high / step + 1e-9);
  for (double i = first; i <= last && places.size() < 100; ++i) places.push_back(i * step + 0.0);
  return places;
}

Histogram::Histogram(double low, double high, std::size_t classes)
    : low_(low), high_(high), counts_(classes, 0) {}

void Histogram::add(double value) {
  ++all_;
  if (!(value >= low_ && value <= high_)) {
    ++beyond_;
    return;
  }
  const double place = (value - low_) / (high_ - low_) * static_cast<double>(counts_.size());
  ++counts_[std::min(static_cast<std::size_t>(place), counts_.size() - 1)];
}

double Histogram::share(std::size_t index) const {
  return all_ == 0 ? 0.0 : static_cast<double>(counts_[index]) / static_cast<double>(all_);
}

double Histogram::largest_share() const {
  double largest = 0.0;
  for (std::size_t i = 0; i < size(); ++i) largest = std::max(largest, share(i));
  return largest;
}

std::string drawn(double value) {
  std::string text = fmt::format("{:.1f}", std::isfinite(value) ? value : 0.0);
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text == "-0" ? "0" : text;
}

void open_drawing(Markup& page, double height, const std::string& name, const std::string& alternative) {
  page.open("svg", {{"viewBox", fmt::format("0 0 {} {}", drawn(kDrawingWidth), drawn(height))},
                    {"role", "img"},
                    {"aria-label", fmt::format("{}: {}", name, alternative)}});
}

void draw_text(Markup& page, double x, double y, const std::string& text, const std::string& style) {
  page.leaf("text", text, {{"x", drawn(x)}, {"y", drawn(y)}, {"class", style}});
}

void draw_axes(Markup& page, const PlotArea& area, const std::string& x_label, const std::string& y_label) {
  const double bottom = area.top + area.height;
  for (const double value : ticks(area.y_low, area.y_high, 5)) {
    draw_line(page, area.left, area.y(value), area.left + area.width, area.y(value), "grid");
    draw_text(page, area.left - kLetter, area.y(value) + kLetter, fmt::format("{:.3g} %", 100.0 * value),
              "end");
  }
  for (const double value : ticks(area.x_low, area.x_high, 6)) {
    draw_line(page, area.x(value), bottom, area.x(value), bottom + kLetter, "axis");
    draw_text(page, area.x(value), bottom + 17.0, fmt::format("{:g}", value), "mid");
  }
  draw_line(page, area.left, bottom, area.left + area.width, bottom, "axis");
  draw_text(page, area.left + area.width / 2.0, bottom + 33.0, x_label, "mid");
  draw_text(page, area.left, area.top - 8.0, y_label);
}

void draw_histogram(Markup& page, const PlotArea& area, const Histogram& histogram,
                    const std::string& style) {
  std::string path = fmt::format("M{} {}", drawn(area.x(histogram.low())), drawn(area.y(0.0)));
  const double step = (histogram.high() - histogram.low()) / static_cast<double>(histogram.size());
  for (std::size_t i = 0; i < histogram.size(); ++i) {
    path += fmt::format("V{}H{}", drawn(area.y(histogram.share(i))),
                        drawn(area.x(histogram.low() + step * static_cast<double>(i + 1))));
  }
  path += fmt::format("V{}Z", drawn(area.y(0.0)));
  page.empty("path", {{"d", path}, {"class", style}});
}

void add_caption(Markup& page, const std::string& look_for, const std::string& here) {
  page.open("figcaption");
  page.open("p").leaf("b", "Look for:").text(" " + look_for).close();
  page.open("p").leaf("b", "Here:").text(" " + here).close();
  page.close();
}

void add_key(Markup& page, const std::string& style, const std::string& meaning) {
  page.open("span", {{"class", "key"}});
  page.open("svg", {{"viewBox", "0 0 14 14"}, {"aria-hidden", "true"}});
  if (style.starts_with("dot-misfit")) {
    page.empty("path", {{"d", "M3 3L11 11M11 3L3 11"}, {"class", style}});
  } else if (style.starts_with("dot")) {
    page.empty("path", {{"d", "M7 7h0"}, {"class", style + " large"}});
  } else {
    page.empty("rect", {{"x", "1"}, {"y", "2"}, {"width", "12"}, {"height", "10"}, {"class", style}});
  }
  page.close().text(" " + meaning).close();
}

std::string count_of(std::size_t count, const std::string& one, const std::string& many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
}

}  // namespace twintrue::cli

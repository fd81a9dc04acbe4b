#pragma once

// What all plots of a page have in common: scales, axes and figures with their words.

#include <cstddef>
#include <string>
#include <vector>

#include "apps/cli/report/Markup.h"

namespace twintrue::cli {

// The smallest of 1, 2 and 5 times a power of ten that is at least `value`; 1 for what is no positive number.
double round_up(double value);

// Some round numbers from `low` to `high`, about `about` of them. `low` < `high`, both finite.
std::vector<double> ticks(double low, double high, int about);

// Equal classes from `low` to `high`.
class Histogram {
 public:
  Histogram(double low, double high, std::size_t classes);
  void add(double value);
  // Of all that was added, whether it lies on the axis or not; 0 without any.
  double share(std::size_t index) const;
  double largest_share() const;
  std::size_t size() const { return counts_.size(); }
  std::size_t beyond() const { return beyond_; }
  double low() const { return low_; }
  double high() const { return high_; }

 private:
  double low_;
  double high_;
  std::vector<std::size_t> counts_;
  std::size_t beyond_ = 0;
  std::size_t all_ = 0;
};

// A rectangle of a drawing that shows x from `x_low` to `x_high` and y from 0 to `y_high` upward.
struct PlotArea {
  double left = 46.0;
  double top = 10.0;
  double width = 344.0;
  double height = 170.0;
  double x_low = 0.0;
  double x_high = 1.0;
  double y_high = 1.0;
  double y_low = 0.0;

  double x(double value) const { return left + width * (value - x_low) / (x_high - x_low); }
  double y(double value) const { return top + height * (1.0 - (value - y_low) / (y_high - y_low)); }
};

// Size of a drawing, in its own units: that of a phone, so that its letters stay readable there.
inline constexpr double kDrawingWidth = 400.0;

// Number for a drawing: a tenth of a unit is finer than any screen.
std::string drawn(double value);

// Opens a drawing that a reader who doesn't see it is told about by `alternative`.
void open_drawing(Markup& page, double height, const std::string& name, const std::string& alternative);

// Axes with their numbers and what they are; y is a share.
void draw_axes(Markup& page, const PlotArea& area, const std::string& x_label, const std::string& y_label);

// The outline of a histogram whose shares are the y axis.
void draw_histogram(Markup& page, const PlotArea& area, const Histogram& histogram, const std::string& style);

void draw_text(Markup& page, double x, double y, const std::string& text, const std::string& style = "");

// Under a picture: what to look for, and what this frame shows.
void add_caption(Markup& page, const std::string& look_for, const std::string& here);

// A sample of a colour with what it stands for.
void add_key(Markup& page, const std::string& style, const std::string& meaning);

// "1 match", "3 matches".
std::string count_of(std::size_t count, const std::string& one, const std::string& many);

}  // namespace twintrue::cli

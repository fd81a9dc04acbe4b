#include "features/Grid.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <string>

#include "features/ParamBool.h"

namespace fpu {
namespace {

constexpr std::int64_t kMaxInt = std::numeric_limits<std::int32_t>::max();

// Keypoints of a cell where the file says nothing.
constexpr std::int32_t kUsualCapacity = 30;

// One direction of the raster, in pixels and cells.
struct Axis {
  std::int32_t margin = 0;
  std::int32_t cell_size = 0;
  std::int32_t cell_count = 0;
};

// A negative margin is a percentage of the length; the product wraps as 32-bit arithmetic does.
std::int32_t resolve_margin(std::int32_t value, std::int32_t length, std::int32_t min_margin) {
  if (value < 0) {
    const std::uint32_t product = static_cast<std::uint32_t>(value) * static_cast<std::uint32_t>(length);
    value = static_cast<std::int32_t>(product) / -100;
  }
  return std::max(value, min_margin);
}

// Works out what the file leaves open: the size from a given count, else the count from the size. False if
// that raster can't be laid inside the length.
bool lay_axis(const twintrue::ParamNode& section, const char* count_key, const char* size_key,
              std::int32_t length, Axis& axis) {
  using namespace twintrue;
  const std::int64_t room = std::int64_t{length} - 2 * std::int64_t{axis.margin};
  param_get_int(param_child(section, count_key), &axis.cell_count, &axis.cell_count);
  std::int64_t size = 0;
  std::int64_t count = axis.cell_count;
  if (count >= 1) {
    size = room / count;
  } else {
    param_get_int(param_child(section, size_key), &axis.cell_size, &axis.cell_size);
    size = axis.cell_size;
    count = size >= 1 ? room / size : 0;
  }
  if (size < 1 || count < 0 || axis.margin < 0) return false;
  if (axis.margin + size * count > length) return false;
  axis.cell_size = static_cast<std::int32_t>(size);
  axis.cell_count = static_cast<std::int32_t>(count);
  return true;
}

// A text that is one integer and nothing else; blanks may stand before it, as inline lists keep them. Any
// other text leaves `out` as it is.
bool parse_whole_int(const std::string& text, std::int32_t& out) {
  const char* first = text.data();
  const char* const last = first + text.size();
  while (first != last && std::isspace(static_cast<unsigned char>(*first)) != 0) ++first;
  if (first != last && *first == '+') {
    ++first;
    if (first != last && *first == '-') return false;
  }
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc{} || end != last) return false;
  out = value;
  return true;
}

void read_excluded_rect(const twintrue::ParamNode& section, ExcludedRect& rect) {
  using namespace twintrue;
  const ParamNode node = param_child(section, "excluded_rect");
  param_get_bool(param_child(node, "enabled"), &rect.enabled);
  param_get_int(param_child(node, "x"), &rect.x, &rect.x);
  param_get_int(param_child(node, "y"), &rect.y, &rect.y);
  param_get_int(param_child(node, "width"), &rect.width, &rect.width);
  param_get_int(param_child(node, "height"), &rect.height, &rect.height);
}

}  // namespace

bool Grid::load(twintrue::ParamDocument& document, std::int32_t minMargin) {
  using namespace twintrue;
  const ParamNode section = param_root_child(document, "grid");
  if (param_is_none(section)) return false;

  param_get_int(param_child(section, "num_kps_in_cell"), &num_kps_in_cell, &num_kps_in_cell);

  constexpr std::int32_t kNoMargin = 0;
  Axis horz{0, horz_cell_size, horz_cell_count};
  param_get_int(param_child(section, "horz_margin"), &horz.margin, &kNoMargin);
  horz.margin = resolve_margin(horz.margin, frameWidth, minMargin);
  if (!lay_axis(section, "horz_cell_count", "horz_cell_size", frameWidth, horz)) return false;
  horz_cell_size = horz.cell_size;
  horz_cell_count = horz.cell_count;
  left = horz.margin;
  right = horz_cell_size * horz_cell_count + left;

  Axis vert{0, vert_cell_size, vert_cell_count};
  param_get_int(param_child(section, "vert_margin"), &vert.margin, &kNoMargin);
  vert.margin = resolve_margin(vert.margin, frameHeight, minMargin);
  if (!lay_axis(section, "vert_cell_count", "vert_cell_size", frameHeight, vert)) return false;
  vert_cell_size = vert.cell_size;
  vert_cell_count = vert.cell_count;
  top = vert.margin;
  bottom = vert_cell_size * vert_cell_count + top;

  read_excluded_rect(section, excluded_rect);
  if (!load_capacity(document)) return false;

  const std::int64_t cells = std::int64_t{vert_cell_count} * horz_cell_count;
  const std::int64_t area = std::int64_t{vert_cell_size} * horz_cell_size;
  if (cells > kMaxInt || area > kMaxInt) return false;
  const std::int64_t slots = cells == 0 ? 0 : num_kps_in_cell * cells;
  if (std::max(slots, -slots) > kMaxKeypointSlots) return false;
  max_num_kps_in_frame = static_cast<std::int32_t>(slots);
  return true;
}

bool Grid::load_capacity(twintrue::ParamDocument& document) {
  using namespace twintrue;
  const ParamNode node = param_child(param_root_child(document, "RENO"), "num_min_kps_in_cell_of_octave");
  auto& wanted = num_min_kps_in_cell_of_octave;
  wanted.fill(0);
  if (!param_is_sequence(node)) {
    if (num_kps_in_cell < 1) num_kps_in_cell = kUsualCapacity;
    wanted[0] = num_kps_in_cell;
    return true;
  }
  std::int64_t sum = 0;
  std::size_t octave = 0;
  const auto last = param_end(node);
  for (auto entry = param_begin(node); entry != last && octave < wanted.size(); ++entry, ++octave) {
    if (!parse_whole_int((*entry).second.text(), wanted[octave])) break;
    sum += wanted[octave];
  }
  if (num_kps_in_cell >= 1) return true;
  if (sum > kMaxInt || sum < -kMaxInt) return false;
  num_kps_in_cell = static_cast<std::int32_t>(sum);
  return true;
}

std::int32_t Grid::numVertCells() const { return vert_cell_count; }
std::int32_t Grid::numHorzCells() const { return horz_cell_count; }
std::int32_t Grid::cellHeight() const { return vert_cell_size; }
std::int32_t Grid::cellWidth() const { return horz_cell_size; }
std::int32_t Grid::cellArea() const { return vert_cell_size * horz_cell_size; }
std::int32_t Grid::cellColumnOf(std::int32_t x) const { return (x - left) / horz_cell_size; }
std::int32_t Grid::cellRowOf(std::int32_t y) const { return (y - top) / vert_cell_size; }

bool Grid::cellIndexOf(std::int32_t x, std::int32_t y, std::int32_t* out) const {
  const GridIF& grid = *this;
  const std::int32_t row = grid.cellRowOf(y);
  return grid.cellIndex(grid.cellColumnOf(x), row, out);
}

bool Grid::cellIndex(std::int32_t column, std::int32_t row, std::int32_t* out) const {
  if (column < 0 || column >= horz_cell_count || row < 0 || row >= vert_cell_count) return false;
  *out = row * horz_cell_count + column;
  return true;
}

std::int32_t Grid::areaWidth() const { return right - left; }
std::int32_t Grid::areaHeight() const { return bottom - top; }
std::int32_t Grid::areaLeft() const { return left; }
std::int32_t Grid::areaTop() const { return top; }
std::int32_t Grid::numCells() const { return vert_cell_count * horz_cell_count; }
std::int32_t Grid::maxKpsInCell() const { return num_kps_in_cell; }
std::int32_t Grid::maxKpsInFrame() const { return max_num_kps_in_frame; }

}  // namespace fpu

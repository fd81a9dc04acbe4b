#include "features/Grid.h"

#include <gtest/gtest.h>

#include "FeatureTestSupport.h"

namespace {

using testing_support::document_of;

// One direction as the file asks for it, and what must come of it. The other direction stays at one cell of
// ten pixels.
struct AxisCase {
  std::string keys;  // with % for "horz" or "vert"
  std::int32_t length;
  std::int32_t patch;
  bool loads;
  std::int32_t margin;
  std::int32_t size;
  std::int32_t count;
};

std::string section(const AxisCase& test, const std::string& axis, const std::string& other) {
  std::string text = "grid:\n  " + other + "_cell_count: 1\n";
  for (const char c : test.keys) text += c == '%' ? axis : std::string(1, c);
  return text;
}

TEST(GridTest, LaysBothDirectionsAlike) {
  const AxisCase cases[] = {
      {"  %_margin: -10\n", 1920, 13, true, 192, 120, 12},
      {"  %_margin: -1\n", 1000, 25, true, 20, 120, 8},
      // -4294968960 is -1664 in 32 bits, and that divided by -100 cut to 16.
      {"  %_margin: -2236963\n", 1920, 13, true, 16, 120, 15},
      {"  %_margin: 2\n", 1000, 13, true, 14, 120, 8},
      {"  %_margin: 30px\n", 1000, 13, true, 30, 120, 7},
      {"  %_margin: wide\n", 1000, 13, true, 14, 120, 8},
      {"  %_margin: 20\n  %_cell_count: 3\n", 1000, 13, true, 20, 320, 3},
      {"  %_margin: 20\n  %_cell_count: 7\n", 1000, 13, true, 20, 137, 7},
      {"  %_margin: 20\n  %_cell_count: 3\n  %_cell_size: 10\n", 1000, 13, true, 20, 320, 3},
      {"  %_margin: 20\n  %_cell_count: 0\n  %_cell_size: 120\n", 1000, 13, true, 20, 120, 8},
      {"  %_margin: 20\n  %_cell_count: -3\n  %_cell_size: 100\n", 1000, 13, true, 20, 100, 9},
      {"  %_cell_size: 64\n", 1000, 13, true, 14, 64, 15},
      // Too small for one cell: a raster without cells.
      {"  %_cell_size: 2000\n", 1000, 13, true, 14, 2000, 0},
      {"  %_cell_size: 0\n", 1000, 13, false, 0, 0, 0},
      {"  %_cell_size: -5\n", 1000, 13, false, 0, 0, 0},
      {"  %_cell_size: -2147483648\n", 1000, 13, false, 0, 0, 0},
      {"  %_cell_count: 973\n", 1000, 13, false, 0, 0, 0},
      {"  %_margin: 600\n  %_cell_size: 50\n", 1000, 13, false, 0, 0, 0},
      {"  %_margin: 1001\n  %_cell_size: 5000\n", 1000, 13, false, 0, 0, 0},
      {"  %_margin: 2147483647\n", 1000, 13, false, 0, 0, 0},
  };
  for (const AxisCase& test : cases) {
    SCOPED_TRACE(test.keys);
    fpu::Grid horz;
    horz.frameWidth = test.length;
    horz.frameHeight = 400;
    auto document = document_of(section(test, "horz", "vert"));
    ASSERT_EQ(horz.load(document, test.patch / 2 + 8), test.loads);
    fpu::Grid vert;
    vert.frameWidth = 400;
    vert.frameHeight = test.length;
    document = document_of(section(test, "vert", "horz"));
    ASSERT_EQ(vert.load(document, test.patch / 2 + 8), test.loads);
    if (!test.loads) continue;

    EXPECT_EQ(horz.areaLeft(), test.margin);
    EXPECT_EQ(horz.cellWidth(), test.size);
    EXPECT_EQ(horz.numHorzCells(), test.count);
    EXPECT_EQ(horz.right, test.margin + test.size * test.count);
    EXPECT_EQ(horz.areaWidth(), test.size * test.count);
    EXPECT_EQ(vert.areaTop(), test.margin);
    EXPECT_EQ(vert.cellHeight(), test.size);
    EXPECT_EQ(vert.numVertCells(), test.count);
    EXPECT_EQ(vert.bottom, test.margin + test.size * test.count);
    EXPECT_EQ(vert.areaHeight(), test.size * test.count);
    EXPECT_EQ(horz.numCells(), test.count);
    EXPECT_EQ(horz.maxKpsInFrame(), 30 * test.count);
  }
}

TEST(GridTest, NeedsItsSection) {
  fpu::Grid grid;
  grid.frameWidth = grid.frameHeight = 1000;
  auto document = document_of("RENO:\n  patchSize: 13\n");
  EXPECT_FALSE(grid.load(document, 14));
  EXPECT_EQ(grid.num_kps_in_cell, -1);
  EXPECT_FALSE(grid.excluded_rect.enabled);
  EXPECT_EQ(grid.num_min_kps_in_cell_of_octave[0], 30);
}

TEST(GridTest, CapacityComesFromTheGridOrTheLevels) {
  const struct {
    std::string grid_key;
    std::string level_key;
    bool loads;
    std::int32_t capacity;
    std::int32_t first;
    std::int32_t second;
  } cases[] = {
      {"", "", true, 30, 30, 0},
      {"  num_kps_in_cell: 7\n", "", true, 7, 7, 0},
      {"  num_kps_in_cell: 0\n", "", true, 30, 30, 0},
      {"", "[10, 20]", true, 30, 10, 20},
      {"  num_kps_in_cell: 7\n", "[10, 20]", true, 7, 10, 20},
      {"", "[10, 2x, 30]", true, 10, 10, 0},
      {"", "[10,+5, 30 ,40]", true, 15, 10, 5},
      {"", "[10, 99999999999, 5]", true, 10, 10, 0},
      {"", "[x]", true, 0, 0, 0},
      {"", "[5, -9]", true, -4, 5, -9},
      {"", "[1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,7,7,7,7,7]", true, 20, 1, 1},
      {"", "12", true, 30, 30, 0},
      {"", "[2147483647, 2147483647]", false, 0, 0, 0},
      // Eight cells hold 2^26 slots.
      {"  num_kps_in_cell: 8388608\n", "", true, 8388608, 8388608, 0},
      {"  num_kps_in_cell: 8388609\n", "", false, 0, 0, 0},
      {"  num_kps_in_cell: 2000000000\n", "", false, 0, 0, 0},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.grid_key + test.level_key);
    fpu::Grid grid;
    grid.frameWidth = grid.frameHeight = 1000;
    auto document = document_of("grid:\n  horz_cell_count: 4\n  vert_cell_count: 2\n" + test.grid_key +
                                "RENO:\n  num_min_kps_in_cell_of_octave: " + test.level_key + "\n");
    ASSERT_EQ(grid.load(document, 14), test.loads);
    if (!test.loads) continue;
    EXPECT_EQ(grid.maxKpsInCell(), test.capacity);
    EXPECT_EQ(grid.maxKpsInFrame(), 8 * test.capacity);
    EXPECT_EQ(grid.num_min_kps_in_cell_of_octave[0], test.first);
    EXPECT_EQ(grid.num_min_kps_in_cell_of_octave[1], test.second);
  }
}

// Nor may a cell have more pixels than 32 bits can count.
TEST(GridTest, RefusesCellsWithoutACount) {
  for (const auto& [cell_width, loads] : {std::pair{53687, true}, {53688, false}}) {
    fpu::Grid grid;
    grid.frameWidth = grid.frameHeight = 1000;
    auto document =
        document_of("grid:\n  vert_cell_size: 40000\n  horz_cell_size: " + std::to_string(cell_width) + "\n");
    EXPECT_EQ(grid.load(document, 14), loads);
  }
}

TEST(GridTest, ReadsTheExcludedRectangle) {
  fpu::Grid grid;
  grid.frameWidth = grid.frameHeight = 1000;
  auto document = document_of(
      "grid:\n  excluded_rect:\n    enabled: 1\n    x: 3\n    y: -4\n    width: 50\n    height: 60\n");
  ASSERT_TRUE(grid.load(document, 14));
  EXPECT_TRUE(grid.excluded_rect.enabled);
  EXPECT_EQ(grid.excluded_rect.x, 3);
  EXPECT_EQ(grid.excluded_rect.y, -4);
  EXPECT_EQ(grid.excluded_rect.width, 50);
  EXPECT_EQ(grid.excluded_rect.height, 60);
}

TEST(GridTest, FindsTheCellOfAPixel) {
  const fpu::Grid grid = testing_support::grid_of(14, 20, 30, 40, 5, 3, 1);
  for (std::int32_t y = 0; y < 200; ++y) {
    for (std::int32_t x = 0; x < 220; ++x) {
      // Up to a cell before the area still counts as its first cell.
      std::int32_t expected = -1;
      for (std::int32_t c = 0; c < grid.numCells(); ++c) {
        const std::int32_t cell_left = 14 + 30 * (c % 5);
        const std::int32_t cell_top = 20 + 40 * (c / 5);
        const bool in_column = x < cell_left + 30 && x >= (c % 5 == 0 ? 0 : cell_left);
        const bool in_row = y < cell_top + 40 && y >= (c / 5 == 0 ? 0 : cell_top);
        if (in_column && in_row) expected = c;
      }
      std::int32_t found = -1;
      ASSERT_EQ(grid.cellIndexOf(x, y, &found), expected >= 0) << x << ", " << y;
      ASSERT_EQ(found, expected) << x << ", " << y;
    }
  }
  std::int32_t untouched = 77;
  EXPECT_FALSE(grid.cellIndex(-1, 0, &untouched));
  EXPECT_FALSE(grid.cellIndex(5, 0, &untouched));
  EXPECT_FALSE(grid.cellIndex(0, -1, &untouched));
  EXPECT_FALSE(grid.cellIndex(0, 3, &untouched));
  EXPECT_FALSE(grid.cellIndexOf(-60, 30, &untouched));
  EXPECT_EQ(untouched, 77);
}

}  // namespace

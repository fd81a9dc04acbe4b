#pragma once

// Two frames of hand-made keypoints over a small grid, without a parameter file or a picture.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "features/FeatureFrame.h"
#include "features/FeatureUnit.h"
#include "matching/MatchSet.h"
#include "params/ParamDocument.h"
#include "support/TempDir.h"

namespace matching_tests {

struct Raster {
  std::int32_t columns = 6;
  std::int32_t rows = 5;
  std::int32_t cell_width = 40;
  std::int32_t cell_height = 32;
  std::int32_t capacity = 12;
};

constexpr std::int32_t kMargin = 20;

using Descriptor = std::vector<unsigned char>;

// Opens a parameter text by way of a file: as a name it could be longer than the system takes.
inline bool open_text(twintrue::ParamDocument& document, const std::string& text) {
  const testing_support::TempDir folder;
  return twintrue::param_document_open(document, folder.write("param.yaml", text));
}

class Scene {
 public:
  explicit Scene(const Raster& raster = {}) {
    fpu::Grid& grid = unit.grid;
    grid.num_kps_in_cell = raster.capacity;
    grid.horz_cell_count = raster.columns;
    grid.vert_cell_count = raster.rows;
    grid.horz_cell_size = raster.cell_width;
    grid.vert_cell_size = raster.cell_height;
    grid.left = grid.top = kMargin;
    grid.right = kMargin + raster.columns * raster.cell_width;
    grid.bottom = kMargin + raster.rows * raster.cell_height;
    grid.frameWidth = grid.right + kMargin;
    grid.frameHeight = grid.bottom + kMargin;
    unit.mvcSettings.image_width = unit.matchingSettings.image_width = grid.frameWidth;
    unit.mvcSettings.image_height = unit.matchingSettings.image_height = grid.frameHeight;
    unit.mvcSettings.max_num_data_in_cell = raster.capacity;
    unit.mvcSettings.num_matching_in_cell_out = raster.capacity;
    unit.mvcSettings.score_mode = {1, 1, 1, 1};
    a = std::make_unique<fpu::FeatureFrame>(unit);
    b = std::make_unique<fpu::FeatureFrame>(unit);
  }

  // Loads the sections of a parameter text as a unit does. False if one is refused.
  bool load(const std::string& text, std::int32_t candidates) {
    if (!open_text(unit.document, text)) return false;
    unit.mvcSettings.candidates = candidates;
    return fpu::load_matching_settings(unit.matchingSettings, unit.document, 0) &&
           fpu::load_correction_settings(unit.mvcSettings, unit.document, 0) &&
           fpu::load_check_settings(unit.vdetSettings, unit.document, "vdet", false);
  }

  fpu::FeatureUnit unit;
  std::unique_ptr<fpu::FeatureFrame> a;
  std::unique_ptr<fpu::FeatureFrame> b;
};

// Stores a keypoint in its cell; null outside the grid or in a full cell. `index` counts up in order of the
// calls, so that it follows no cell order.
inline fpu::KeyPointRecord* add_keypoint(fpu::FeatureFrame& frame, float x, float y, std::uint16_t score) {
  fpu::KeyPointStore& store = frame.store;
  std::int32_t cell = 0;
  if (x < kMargin || y < kMargin ||
      !store.grid->cellIndexOf(static_cast<std::int32_t>(x), static_cast<std::int32_t>(y), &cell)) {
    return nullptr;
  }
  std::int32_t& count = store.cellCounts[static_cast<std::size_t>(cell)];
  if (count == store.capacityPerCell) return nullptr;
  fpu::KeyPointRecord& keypoint =
      store.records[static_cast<std::size_t>(cell * store.capacityPerCell + count++)];
  keypoint = {x, y, cell, store.count++, -1, score, 0, 1};
  return &keypoint;
}

// Gives the frame its descriptors, one for each keypoint in order of index.
inline void set_descriptors(fpu::FeatureFrame& frame, const std::vector<Descriptor>& rows) {
  if (rows.empty()) return;
  frame.descriptors.create(static_cast<std::int32_t>(rows.size()), static_cast<std::int32_t>(rows[0].size()));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::copy(rows[i].begin(), rows[i].end(), frame.descriptors.row(static_cast<std::ptrdiff_t>(i)));
  }
}

inline Descriptor random_descriptor(std::mt19937& random, std::size_t bytes) {
  Descriptor row(bytes);
  for (auto& byte : row) byte = static_cast<unsigned char>(random());
  return row;
}

inline float uniform(std::mt19937& random, double low, double high) {
  return static_cast<float>(std::uniform_real_distribution<double>(low, high)(random));
}

inline std::int32_t uniform_int(std::mt19937& random, std::int32_t low, std::int32_t high) {
  return std::uniform_int_distribution<std::int32_t>(low, high)(random);
}

// Keypoints at random places on a lattice of half pixels, so that distances often tie. Descriptors differ
// from each other in few bits, for the same reason.
inline void fill_randomly(fpu::FeatureFrame& frame, std::mt19937& random, int attempts, std::size_t bytes) {
  const fpu::GridIF& grid = *frame.store.grid;
  const Descriptor common = random_descriptor(random, bytes);
  std::vector<Descriptor> rows;
  for (int i = 0; i < attempts; ++i) {
    const auto x =
        static_cast<float>(uniform_int(random, 2 * kMargin, 2 * (kMargin + grid.areaWidth()) - 1) * 0.5);
    const auto y =
        static_cast<float>(uniform_int(random, 2 * kMargin, 2 * (kMargin + grid.areaHeight()) - 1) * 0.5);
    if (add_keypoint(frame, x, y, static_cast<std::uint16_t>(random())) == nullptr) continue;
    rows.push_back(common);
    for (int flips = uniform_int(random, 0, 6); flips > 0; --flips) {
      const std::size_t bit = random() % (8 * bytes);
      rows.back()[bit / 8] ^= static_cast<unsigned char>(1U << (bit % 8));
    }
  }
  set_descriptors(frame, rows);
}

// Every field of every vector. A vector has no gaps, so its words are its fields.
inline void expect_equal(const fpu::MatchSet& found, const fpu::MatchSet& expected) {
  using Words = std::array<std::int32_t, sizeof(fpu::MatchVector) / sizeof(std::int32_t)>;
  ASSERT_EQ(found.total, expected.total);
  for (std::int32_t c = 0; c < found.grid->numCells(); ++c) {
    ASSERT_EQ(found.count(c), expected.count(c)) << "cell " << c;
    for (std::int32_t i = 0; i < found.count(c); ++i) {
      ASSERT_EQ(std::bit_cast<Words>(found.cell(c)[i]), std::bit_cast<Words>(expected.cell(c)[i]))
          << "cell " << c << ", vector " << i;
    }
  }
}

}  // namespace matching_tests

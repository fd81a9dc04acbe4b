#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "base/ThreadTeam.h"
#include "features/FeatureFrame.h"
#include "features/Grid.h"
#include "features/StageTap.h"
#include "imaging/XMat.h"
#include "params/ParamDocument.h"
#include "support/TempDir.h"

namespace testing_support {

inline twintrue::ParamDocument document_of(const std::string& text) {
  const TempDir folder;
  twintrue::ParamDocument document;
  twintrue::param_document_open(document, folder.write("params.yaml", text));
  return document;
}

// Pixels from a generator, in rows that are `spare` elements longer than the image.
template <typename T, class Generate>
cve::XMat_<T> make_image(std::int32_t cols, std::int32_t rows, Generate generate, std::int32_t spare = 0) {
  cve::XMat_<T> image;
  image.create(rows, cols, (cols + spare) * static_cast<std::int32_t>(sizeof(T)));
  for (std::int32_t y = 0; y < rows; ++y) {
    for (std::int32_t x = 0; x < cols; ++x) image.at(y, x) = generate();
  }
  return image;
}

inline cve::XMat_<unsigned char> random_bytes(std::int32_t cols, std::int32_t rows, unsigned seed) {
  std::mt19937 engine(seed);
  return make_image<unsigned char>(cols, rows, [&] { return static_cast<unsigned char>(engine() >> 24); });
}

// Multiples of 2^-16 from 0 to 1, so that generated images are the same everywhere.
inline cve::XMat_<float> random_light(std::int32_t cols, std::int32_t rows, unsigned seed,
                                      std::int32_t spare = 0) {
  std::mt19937 engine(seed);
  return make_image<float>(
      cols, rows, [&] { return static_cast<float>(engine() >> 16) / 65536.0f; }, spare);
}

// Cells laid by hand.
inline fpu::Grid grid_of(std::int32_t left, std::int32_t top, std::int32_t cell_width,
                         std::int32_t cell_height, std::int32_t columns, std::int32_t rows,
                         std::int32_t capacity) {
  fpu::Grid grid;
  grid.left = left;
  grid.top = top;
  grid.horz_cell_size = cell_width;
  grid.vert_cell_size = cell_height;
  grid.horz_cell_count = columns;
  grid.vert_cell_count = rows;
  grid.right = left + cell_width * columns;
  grid.bottom = top + cell_height * rows;
  grid.num_kps_in_cell = capacity;
  return grid;
}

inline fpu::KeyPointStore store_for(const fpu::Grid& grid) {
  fpu::KeyPointStore store;
  store.grid = &grid;
  store.capacityPerCell = grid.maxKpsInCell();
  const auto slots = static_cast<std::size_t>(grid.numCells() * grid.maxKpsInCell());
  store.records.resize(slots);
  store.cellCounts.resize(slots);
  return store;
}

// Live records, cell by cell.
inline std::vector<fpu::KeyPointRecord> live_records(const fpu::KeyPointStore& store) {
  std::vector<fpu::KeyPointRecord> records;
  for (std::int32_t c = 0; c < store.grid->numCells(); ++c) {
    const auto first = store.records.begin() + c * store.capacityPerCell;
    records.insert(records.end(), first, first + store.cellCounts[static_cast<std::size_t>(c)]);
  }
  return records;
}

// Counts and live records are the same to the last bit.
inline bool same_records(const fpu::KeyPointStore& a, const fpu::KeyPointStore& b) {
  const auto left = live_records(a);
  const auto right = live_records(b);
  static_assert(sizeof(fpu::KeyPointRecord) == 24);
  return a.count == b.count && a.cellCounts == b.cellCounts && left.size() == right.size() &&
         (left.empty() ||
          std::memcmp(left.data(), right.data(), left.size() * sizeof(fpu::KeyPointRecord)) == 0);
}

// With that many pixels around the image.
template <typename T>
std::vector<T> pixels_of(const cve::XMat_<T>& image, std::int32_t margin = 0) {
  std::vector<T> pixels;
  for (std::int32_t y = -margin; y < image.rows + margin; ++y) {
    pixels.insert(pixels.end(), image.row(y) - margin, image.row(y) + image.cols + margin);
  }
  return pixels;
}

// Equal bits, so that signed zeros and the last digit count.
inline bool same_bits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

class ScopedFolder {
 public:
  explicit ScopedFolder(const std::filesystem::path& folder) : saved_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ScopedFolder(const ScopedFolder&) = delete;
  ScopedFolder& operator=(const ScopedFolder&) = delete;
  ~ScopedFolder() { std::filesystem::current_path(saved_); }

 private:
  std::filesystem::path saved_;
};

}  // namespace testing_support

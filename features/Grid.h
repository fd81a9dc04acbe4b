#pragma once

// The raster of cells over an image: keypoints are kept, matched and counted cell by cell, so that they
// spread over the whole frame.

#include <array>
#include <cstddef>
#include <cstdint>

#include "params/ParamDocument.h"

namespace fpu {

// Keypoint slots that a frame may have, its cells all counted. Stores make every slot, some two hundred bytes
// for the whole stage, so a file could ask for more memory than a machine has.
inline constexpr std::int64_t kMaxKeypointSlots = std::int64_t{1} << 26;

// Read access to a grid. Cells are numbered row by row from 0. Thread-safety: read only after the load.
struct GridIF {
  virtual std::int32_t numVertCells() const = 0;  // cell rows
  virtual std::int32_t numHorzCells() const = 0;  // cell columns
  virtual std::int32_t cellHeight() const = 0;    // pixels
  virtual std::int32_t cellWidth() const = 0;
  virtual std::int32_t cellArea() const = 0;
  // Truncating division: a coordinate less than a cell before the area's edge falls into column or row 0.
  virtual std::int32_t cellColumnOf(std::int32_t x) const = 0;
  virtual std::int32_t cellRowOf(std::int32_t y) const = 0;
  virtual bool cellIndexOf(std::int32_t x, std::int32_t y, std::int32_t* out) const = 0;
  // False, with *out untouched, outside the raster.
  virtual bool cellIndex(std::int32_t column, std::int32_t row, std::int32_t* out) const = 0;
  virtual std::int32_t areaWidth() const = 0;
  virtual std::int32_t areaHeight() const = 0;
  virtual std::int32_t areaLeft() const = 0;
  virtual std::int32_t areaTop() const = 0;
  virtual std::int32_t numCells() const = 0;
  virtual std::int32_t maxKpsInCell() const = 0;
  virtual std::int32_t maxKpsInFrame() const = 0;

 protected:
  ~GridIF() = default;  // never deleted through the interface
};

// A rectangle that the file may exclude; read, kept, and used by nothing.
struct ExcludedRect {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  bool enabled = false;
};

// Levels for which a file may want keypoints.
inline constexpr std::size_t kMaxOctaves = 20;

class Grid final : public GridIF {
 public:
  // Reads the section `grid` (and one key of `RENO`). frameWidth and frameHeight must be set before;
  // minMargin is the least margin in pixels on all sides. False if the section is missing, or the raster
  // can't be laid: a cell size below 1, a negative cell count, an area that leaves the image, more than
  // kMaxKeypointSlots. A raster without cells is legal.
  // Looking keys up adds them to the document's tree.
  bool load(twintrue::ParamDocument& document, std::int32_t minMargin);

  std::int32_t numVertCells() const override;
  std::int32_t numHorzCells() const override;
  std::int32_t cellHeight() const override;
  std::int32_t cellWidth() const override;
  std::int32_t cellArea() const override;
  std::int32_t cellColumnOf(std::int32_t x) const override;
  std::int32_t cellRowOf(std::int32_t y) const override;
  bool cellIndexOf(std::int32_t x, std::int32_t y, std::int32_t* out) const override;
  bool cellIndex(std::int32_t column, std::int32_t row, std::int32_t* out) const override;
  std::int32_t areaWidth() const override;
  std::int32_t areaHeight() const override;
  std::int32_t areaLeft() const override;
  std::int32_t areaTop() const override;
  std::int32_t numCells() const override;
  std::int32_t maxKpsInCell() const override;
  std::int32_t maxKpsInFrame() const override;

  std::int32_t frameWidth = 0;
  std::int32_t frameHeight = 0;
  std::array<std::int32_t, kMaxOctaves> num_min_kps_in_cell_of_octave{30};
  std::int32_t num_kps_in_cell = -1;
  std::int32_t max_num_kps_in_frame = -1;
  std::int32_t horz_cell_size = 120;
  std::int32_t vert_cell_size = 120;
  std::int32_t horz_cell_count = 0;
  std::int32_t vert_cell_count = 0;
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t bottom = 0;  // one past the cell area
  std::int32_t right = 0;
  bool loaded = false;  // the result of the load, stored by the caller
  ExcludedRect excluded_rect;

 private:
  // num_kps_in_cell, if the grid's own section leaves it open, from the wanted numbers of the levels.
  bool load_capacity(twintrue::ParamDocument& document);
};

}  // namespace fpu

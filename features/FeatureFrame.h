#pragma once

// What detection and description leave for one image: keypoints by grid cell, and one descriptor row a
// keypoint. Coordinates are pixels of the image, x to the right and y downward, whole numbers at pixel
// centres.

#include <cstdint>
#include <vector>

#include "features/Grid.h"
#include "imaging/XMat.h"

namespace fpu {

class FeatureUnit;

struct KeyPointRecord {
  float x = 0.0f;  // column in the image, sub-pixel after refinement
  float y = 0.0f;  // row
  std::int32_t cell = 0;
  std::int32_t index = 0;    // running number in the frame and descriptor row; -1 until assigned
  std::int32_t link = 0;     // -1 at detection; then the match stage's, for streams of frames
  std::uint16_t score = 0;   // 100 times the response, at most 65535
  std::int8_t octave = 0;    // pyramid level, always 0
  std::uint8_t refined = 1;  // 1 at detection; afterwards whether the sub-pixel step moved the point
};

// The keypoint half of a frame. The records of cell c stand at c * capacityPerCell; cellCounts[c] of them are
// live. cellCounts is as long as records, though only one entry a cell is used.
struct KeyPointStore {
  const GridIF* grid = nullptr;  // the unit's; not owned
  std::vector<KeyPointRecord> records;
  std::vector<std::int32_t> cellCounts;
  std::int32_t capacityPerCell = 0;
  std::int32_t count = 0;  // indices given out; the sub-pixel step may have dropped some of them since
};

// Store of one image, bound to a ready unit, which must outlive it.
struct FeatureFrame {
  explicit FeatureFrame(FeatureUnit& unit_);

  FeatureUnit* unit;
  KeyPointStore store;
  cve::XMat_<unsigned char> descriptors;  // row = KeyPointRecord::index
};

}  // namespace fpu

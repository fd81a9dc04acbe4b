#pragma once

// Store of the match stage, and the conventions that the whole stage follows.
//
// Frames. Frame A is the left half of the captured picture, frame B the right half. The left half holds the
// picture of the right eye, so x_a, y_a belong to the right eye and x_b, y_b to the left one. Positions are
// pixels of their own half, x to the right and y downward, whole numbers at pixel centres.
// Displacement is the position in frame B minus the position in frame A. Correction counts in eighths of a
// pixel; matching, flagging and the gmv in whole pixels. All roundings go half away from zero.
// `dist_ratio` is fixed point: 1 << dist_ratio_shift means that both candidates of a keypoint cost the same.
// The gmv ("global motion vector") is the displacement that most vectors share. Between the two halves of one
// picture it is the dominant disparity.
//
// Links. The stage also serves streams: with links kept, a keypoint of this pair's frame B carries a link
// into this pair's records when it stands in frame A of the next pair. A link that names no record counts as
// none.

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "features/FeatureFrame.h"
#include "features/FeatureUnit.h"
#include "features/Grid.h"

namespace fpu {

// Comparison of a vector with the previous pair's record of the same keypoint.
enum PrevState : std::int32_t {
  kPrevNone = 0,  // nothing to compare with
  kPrevDisagrees = 1,
  kPrevAgrees = 2,
};

// A candidate match in the cell of its frame A keypoint. The default is the fresh state.
struct MatchVector {
  std::int32_t id_a = 0;  // keypoint index in frame A, its descriptor row
  std::int32_t id_b = 0;  // the same in frame B; -1 means none
  // Where the keypoints stand: cell, and place in the cell. Numbers above 32767 wrap to negative ones here;
  // keypoint_a and keypoint_b read them back.
  std::int16_t cell_a = 0;
  std::int16_t slot_a = 0;
  std::int16_t cell_b = 0;
  std::int16_t slot_b = 0;
  std::int32_t cost = 0;        // bits of weighted Hamming distance, with the penalty's whole units
  std::int32_t other_cost = 0;  // of the other candidate of the same keypoint
  std::int32_t dist_ratio = 0;  // 0..255
  std::int32_t score1 = 0;      // support by like vectors around, at most max_score
  std::int32_t score2 = 0;
  std::int32_t score3 = 0;
  std::int32_t score4 = 0;
  std::int32_t score5 = 0;  // no step fills it, yet some sort modes read it: those leave the cell's order
  std::int32_t reserved = 0;
  std::int32_t candidate = 0;  // 0 the best, 1 the second
  std::int32_t rank = -1;      // place in the cell's sorted list; -1 until then
  std::int32_t prev_state = kPrevNone;
};
static_assert(sizeof(MatchVector) == 16 * 4 && std::is_trivially_copyable_v<MatchVector>);

// What leaves the stage: 32-bit words without gaps. Readers outside take a leading part of it by its length.
struct MatchRecord {
  float x_a = 0.0f;
  float y_a = 0.0f;
  float x_b = 0.0f;
  float y_b = 0.0f;
  float prev_dx = kNoPrevious;  // displacement of the linked previous record
  float prev_dy = kNoPrevious;
  std::int32_t octave_a = 0;
  std::int32_t octave_b = 0;
  float response_a = 0.0f;  // the keypoints' scores
  float response_b = 0.0f;
  std::int32_t dist_ratio = 0;
  std::int32_t prev_state = kPrevNone;
  std::int32_t cell = 0;  // of the keypoint in frame A
  std::int32_t rank = 0;
  std::int32_t score1 = 0;
  std::int32_t score2 = 0;
  std::int32_t score3 = 0;
  std::int32_t score4 = 0;
  std::int32_t prev_score1 = 0;  // of the linked previous record
  std::int32_t prev_score2 = 0;
  std::int32_t prev_score3 = 0;
  std::int32_t prev_score4 = 0;
  std::int32_t accepted = 0;  // 1 when flagging accepts the record
  std::int32_t reserved24 = 0;
  std::int32_t cost = 0;
  std::int32_t other_cost = 0;
  std::int32_t reserved27 = -1;
  std::uint32_t on_model = 0;  // 0 or 1: the pair fits a 3 x 3 model. The stage has none, so 0
  std::int32_t reserved29 = 0;
  std::int32_t reserved30[2] = {0, 0};
  std::int32_t reserved32 = -1;
  std::int32_t reserved33[3] = {0, 0, 0};
  std::int32_t reserved36[4] = {0, 0, 0, 0};

  static constexpr float kNoPrevious = 10000.0f;
};
static_assert(sizeof(MatchRecord) == 39 * 4 && std::is_trivially_copyable_v<MatchRecord>);
static_assert(offsetof(MatchRecord, prev_dx) == 4 * 4 && offsetof(MatchRecord, dist_ratio) == 10 * 4);
static_assert(offsetof(MatchRecord, rank) == 13 * 4 && offsetof(MatchRecord, prev_score1) == 18 * 4);
static_assert(offsetof(MatchRecord, accepted) == 22 * 4 && offsetof(MatchRecord, cost) == 24 * 4);
static_assert(offsetof(MatchRecord, on_model) == 27 * 4 && offsetof(MatchRecord, reserved32) == 31 * 4);
static_assert(offsetof(MatchRecord, reserved36) == 35 * 4);

// Cells and records of one pair of frames, and for the next pair the records of the previous one. Bound to a
// ready unit, which must outlive it; one set may serve many pairs. Thread-safety: one call at a time.
struct MatchSet {
  // `candidates` is the number of vectors a keypoint may leave: 1 with out_mode 2, else k. No other number
  // than 1 and 2 can ever be matched, so room is made for 0 to 2. Throws std::bad_alloc where memory is
  // short.
  MatchSet(FeatureUnit& unit_, std::int32_t candidates);

  MatchVector* cell(std::int32_t index) { return vectors.data() + cell_offset(index); }
  const MatchVector* cell(std::int32_t index) const { return vectors.data() + cell_offset(index); }
  std::int32_t& count(std::int32_t index) { return counts[static_cast<std::size_t>(index)]; }
  std::int32_t count(std::int32_t index) const { return counts[static_cast<std::size_t>(index)]; }

  // The record of the previous pair that a keypoint of frame A links to, or null.
  const MatchRecord* linked_record(std::int32_t link) const;

  FeatureUnit* unit;
  std::vector<MatchRecord> records;
  std::vector<MatchVector> spare;  // kept empty
  const GridIF* grid;
  std::vector<MatchVector> vectors;  // cell c owns those from c * capacity on
  std::vector<std::int32_t> counts;  // live vectors of each cell; as long as `vectors`
  std::int32_t capacity = 0;
  std::int32_t total = 0;          // sum of the counts
  std::int32_t section_index = 0;  // which numbered sections of the parameter file apply

 private:
  std::size_t cell_offset(std::int32_t index) const {
    return static_cast<std::size_t>(index) * static_cast<std::size_t>(capacity);
  }
};

// Cells and slots of a raster that the 16-bit places of a MatchVector can name.
inline constexpr std::int32_t kMaxPlaces = 65536;

// The keypoints that a vector names, in the store of its frame. The vector must have both.
inline std::size_t place_in_store(const KeyPointStore& store, std::int16_t cell, std::int16_t slot) {
  return static_cast<std::size_t>(static_cast<std::uint16_t>(cell)) *
             static_cast<std::size_t>(store.capacityPerCell) +
         static_cast<std::uint16_t>(slot);
}
inline const KeyPointRecord& keypoint_a(const FeatureFrame& frame_a, const MatchVector& vector) {
  return frame_a.store.records[place_in_store(frame_a.store, vector.cell_a, vector.slot_a)];
}
inline const KeyPointRecord& keypoint_b(const FeatureFrame& frame_b, const MatchVector& vector) {
  return frame_b.store.records[place_in_store(frame_b.store, vector.cell_b, vector.slot_b)];
}
inline KeyPointRecord& keypoint_b(FeatureFrame& frame_b, const MatchVector& vector) {
  return frame_b.store.records[place_in_store(frame_b.store, vector.cell_b, vector.slot_b)];
}

}  // namespace fpu

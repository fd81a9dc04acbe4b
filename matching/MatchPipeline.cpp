#include "matching/MatchPipeline.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "base/ParallelEach.h"
#include "features/FeatureUnit.h"
#include "features/MatchSettings.h"
#include "matching/Correction.h"
#include "matching/Flagging.h"
#include "matching/Matching.h"

namespace fpu {
namespace {

// Keypoints of frame B that a vector names learn of it, for the next pair.
void write_links(const MatchSet& set, FeatureFrame& frame_b) {
  twintrue::parallel_rows(0, set.grid->numCells(), [&](std::int32_t cell) {
    const MatchVector* const first = set.cell(cell);
    for (const MatchVector* vector = first; vector != first + set.count(cell); ++vector) {
      // Vectors of several cells may name the same keypoint.
      std::atomic_ref(keypoint_b(frame_b, *vector).link).store(vector->id_b, std::memory_order_relaxed);
    }
  });
}

MatchRecord make_record(const MatchSet& set, const MatchVector& vector, const KeyPointRecord& a,
                        const KeyPointRecord& b) {
  if (vector.rank < 0) std::abort();
  MatchRecord record;
  record.x_a = a.x;
  record.y_a = a.y;
  record.x_b = b.x;
  record.y_b = b.y;
  record.octave_a = a.octave;
  record.octave_b = b.octave;
  record.response_a = static_cast<float>(a.score);
  record.response_b = static_cast<float>(b.score);
  record.dist_ratio = vector.dist_ratio;
  record.prev_state = vector.prev_state;
  record.cell = a.cell;
  record.rank = vector.rank;
  record.score1 = vector.score1;
  record.score2 = vector.score2;
  record.score3 = vector.score3;
  record.score4 = vector.score4;
  record.cost = vector.cost;
  record.other_cost = vector.other_cost;
  if (const MatchRecord* const previous = set.linked_record(a.link)) {
    record.prev_dx = previous->x_b - previous->x_a;
    record.prev_dy = previous->y_b - previous->y_a;
    record.prev_score1 = previous->score1;
    record.prev_score2 = previous->score2;
    record.prev_score3 = previous->score3;
    record.prev_score4 = previous->score4;
  }
  return record;
}

// The set's own records are those of the previous pair, which the new ones quote.
std::vector<MatchRecord> make_records(const MatchSet& set, const FeatureFrame& frame_a,
                                      const FeatureFrame& frame_b) {
  std::vector<MatchRecord> records;
  records.reserve(static_cast<std::size_t>(set.total));
  const std::int32_t cells = set.grid->numCells();
  for (std::int32_t cell = 0; cell < cells; ++cell) {
    const MatchVector* const first = set.cell(cell);
    for (const MatchVector* vector = first; vector != first + set.count(cell); ++vector) {
      records.push_back(
          make_record(set, *vector, keypoint_a(frame_a, *vector), keypoint_b(frame_b, *vector)));
    }
  }
  return records;
}

// The number accepted. A section that switches the checks off does so for as long as it applies.
std::int32_t check_records(FeatureUnit& unit, const FeatureFrame& frame_a, const FeatureFrame& frame_b,
                           MatchSet& set) {
  CheckSettings& settings = unit.vdetSettings;
  const std::string section = numbered_section("vdet", set.section_index);
  if (settings.section != section) load_check_settings(settings, unit.document, section, unit.verbose);
  if (!settings.enabled) return 0;
  unit.timer.lap();
  return flag_records(settings, frame_a, frame_b, set, unit.mvcSettings.gmv_x, unit.mvcSettings.gmv_y);
}

}  // namespace

std::int32_t match_frames(FeatureFrame& frame_a, FeatureFrame& frame_b, MatchSet* match_set,
                          bool keep_links) {
  if (match_set == nullptr) return kNoMatchSet;
  MatchSet& set = *match_set;
  FeatureUnit& unit = *frame_a.unit;
  MatchingSettings& matching = unit.matchingSettings;
  CorrectionSettings& correction = unit.mvcSettings;

  unit.timer.lap();
  if (matching.index != set.section_index) {
    load_matching_settings(matching, unit.document, set.section_index);
  }
  matching.keep_links = keep_links;
  if (matching.k != 1 && matching.k != 2) std::abort();
  match_cells(matching, frame_a, frame_b, set);
  unit.timer.lapAndPrint("matching time: {} ms\n");

  if (correction.index != set.section_index) {
    load_correction_settings(correction, unit.document, set.section_index);
  }
  correct_cells(correction, frame_a, frame_b, set);
  unit.timer.lapAndPrint("correction time: {} ms\n");

  if (keep_links) write_links(set, frame_b);
  set.records = make_records(set, frame_a, frame_b);

  unit.relMatchCount = check_records(unit, frame_a, frame_b, set);
  if (unit.vdetSettings.enabled) unit.timer.lapAndPrint("flagging time: {} ms\n");
  return static_cast<std::int32_t>(set.records.size());
}

std::int32_t export_matches(const MatchSet* match_set, void* dest, std::int32_t count,
                            std::int32_t record_bytes) {
  if (match_set == nullptr) return kNoMatchSet;
  if (dest == nullptr) return static_cast<std::int32_t>(match_set->records.size());
  if (count < 1 || record_bytes < 1) return count;
  const auto stride = static_cast<std::size_t>(record_bytes);
  const std::size_t copied = std::min(stride, sizeof(MatchRecord));
  const std::size_t available = std::min(static_cast<std::size_t>(count), match_set->records.size());
  auto* out = static_cast<unsigned char*>(dest);
  for (std::size_t i = 0; i < available; ++i) std::memcpy(out + i * stride, &match_set->records[i], copied);
  return count;
}

}  // namespace fpu

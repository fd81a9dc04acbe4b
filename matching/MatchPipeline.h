#pragma once

// The match stage as its users see it: a pair of frames in, flat records out.

#include <cstdint>

#include "features/FeatureFrame.h"
#include "matching/MatchSet.h"

namespace fpu {

// Both operations give this without a set.
inline constexpr std::int32_t kNoMatchSet = -7;

// Matches two frames of one ready unit after detection and description, and leaves the records of all
// matches in the set, accepted or not, in order of the cells of frame A and of the ranks in them. Returns
// their number, or kNoMatchSet. The number accepted goes to the unit's relMatchCount, the gmv to its
// mvcSettings. Settings whose section differs from the set's section_index are loaded anew first; a section
// that is refused changes nothing.
//
// keep_links is for streams: keypoints of frame B take a link for the next pair, of which that frame is then
// frame A, and vectors are compared with the previous pair's. Without it no frame is written.
//
// Aborts if k is neither 1 nor 2, on an unknown penalty_mode or score mode, and on a vector without a rank.
// If memory is exhausted that exception passes through, and the set's contents are undefined. The calling
// thread runs the stage; matching shares its cells among the members of the thread team. The result is the
// same for every number of them.
std::int32_t match_frames(FeatureFrame& frame_a, FeatureFrame& frame_b, MatchSet* match_set, bool keep_links);

// Copies the leading `record_bytes` bytes of each of the first `count` records to `dest`, one behind the
// other, and returns `count`. Without `dest` the number of records; a count below 1 copies nothing. `dest`
// has room for count * record_bytes bytes. Records that the set does not have, and bytes beyond a record, are
// left as they were in `dest`.
std::int32_t export_matches(const MatchSet* match_set, void* dest, std::int32_t count,
                            std::int32_t record_bytes);

}  // namespace fpu

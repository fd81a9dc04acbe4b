#pragma once

// The inner loops of the search: descriptor distances of one keypoint to the keypoints of a run that lie in
// its area, a block of lanes at a time.

#include <cstddef>
#include <cstdint>

#include "base/InstructionSet.h"
#include "matching/PackedKeypoints.h"

namespace fpu {

// Neighbouring keypoints in a packed frame; never empty.
struct Run {
  std::int32_t begin;
  std::int32_t end;

  std::size_t first_block() const { return static_cast<std::size_t>(begin) / kLanes; }
  std::size_t blocks() const { return static_cast<std::size_t>(end - 1) / kLanes + 1 - first_block(); }
};

// A keypoint and the rectangle around it that is searched.
struct Area {
  std::int32_t x;
  std::int32_t y;
  std::int32_t max_h;  // pixels, to either side and inclusive
  std::int32_t max_v;
  const std::uint32_t* words;  // of the keypoint's descriptor, as DescriptorWords orders them
};

// Stands for the distance of a keypoint outside the area.
inline constexpr std::uint32_t kOutside = 0xFFFFFFFF;

struct AreaKernel {
  // Writes the distances of a run's blocks to `distances` and lowers the minimum of each lane. Lanes outside
  // the run are outside the area as well. Distances wrap at 32 bits.
  void (*measure)(const PackedKeypoints& frame, const DescriptorWords& order, const Area& area, Run run,
                  Lanes<std::uint32_t>* distances, Lanes<std::uint32_t>& minima);
  // Writes the numbers of the lanes whose distance is at most `limit`, in their order, counted from the first
  // lane of `distances`. Returns how many there are. `found` has room for all.
  std::size_t (*collect)(const Lanes<std::uint32_t>* distances, std::size_t blocks, std::uint32_t limit,
                         std::int32_t* found);
};

// The kernel for a set that this machine has.
AreaKernel area_kernel(twintrue::InstructionSet set);

}  // namespace fpu

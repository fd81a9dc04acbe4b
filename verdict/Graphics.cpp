#include "verdict/Graphics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "verdict/Spread.h"

namespace twintrue {
namespace {

using Block = std::pair<std::int32_t, std::int32_t>;

struct Crowd {
  int still = 0;
  int slow = 0;     // moved, but by no more than far things do
  int strange = 0;  // still, and no far thing under the pose
};

constexpr float kStill = 0.5f;  // pixels
constexpr float kSlow = 4.0f;

float way_of(const RayMatch& match) { return std::hypot(match.x_b - match.x_a, match.y_b - match.y_a); }

bool looks_far(const RayPair& pair) {
  return pair.seen && std::abs(pair.across) < kFitting && std::abs(pair.parallax) < kFitting;
}

class Blocks {
 public:
  explicit Blocks(const RigState& rig)
      : side_(std::max(static_cast<float>(rig.half_width) / kBlocksAcross, 1.0f)) {}

  Block block_of(const RayMatch& match) const {
    return {static_cast<std::int32_t>(match.x_a / side_), static_cast<std::int32_t>(match.y_a / side_)};
  }
  Crowd& operator[](const Block& block) { return crowds_[block]; }

  // Of a block and those round it.
  Crowd around(const Block& block) const {
    Crowd sum;
    for (std::int32_t dx = -1; dx <= 1; ++dx) {
      for (std::int32_t dy = -1; dy <= 1; ++dy) {
        const auto found = crowds_.find({block.first + dx, block.second + dy});
        if (found == crowds_.end()) continue;
        sum.still += found->second.still;
        sum.slow += found->second.slow;
        sum.strange += found->second.strange;
      }
    }
    return sum;
  }

 private:
  static constexpr float kBlocksAcross = 32.0f;

  float side_;
  std::map<Block, Crowd> crowds_;
};

bool is_graphics(const Crowd& crowd) {
  constexpr int kClump = 5;
  constexpr int kSlowOnes = 4;  // still ones for each slow one
  return crowd.still >= kClump && crowd.slow * kSlowOnes <= crowd.still && crowd.strange * 2 > crowd.still;
}

}  // namespace

SplitMatches split_graphics(const PairView& view, const std::vector<RayMatch>& matches) {
  Blocks blocks(view.rig());
  std::size_t still = 0;
  for (const RayMatch& match : matches) {
    const float way = way_of(match);
    if (way > kSlow) continue;
    Crowd& crowd = blocks[blocks.block_of(match)];
    if (way > kStill) {
      ++crowd.slow;
      continue;
    }
    ++still;
    ++crowd.still;
    if (!looks_far(view.look(match))) ++crowd.strange;
  }
  SplitMatches split;
  const bool one_picture = still * 2 > matches.size();
  for (const RayMatch& match : matches) {
    const bool drawn =
        !one_picture && way_of(match) <= kStill && is_graphics(blocks.around(blocks.block_of(match)));
    (drawn ? split.graphics : split.scene).push_back(match);
  }
  return split;
}

}  // namespace twintrue

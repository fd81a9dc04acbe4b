#include "matching/VoteKernel.h"

#include <algorithm>
#include <limits>

namespace fpu {
namespace {

// Twice the square of one more than this has 31 bits.
constexpr std::int64_t kLongestNarrow = 32766;

// Serves whatever the numbers are. Without wide registers it is also the faster form, since it leaves those
// that don't vote early.
void sum_wide(const VoterColumns& voters, std::size_t count, const VoteLimits& limits, const VotedFor& a,
              VoteSums& sums) {
  std::array<std::int64_t, kScores> radius2;
  for (std::size_t i = 0; i < kScores; ++i) radius2[i] = limits.radius[i] * limits.radius[i];
  const std::int64_t widest2 = *std::max_element(radius2.begin(), radius2.end());
  const std::int64_t near2 = limits.near * limits.near;
  for (std::size_t w = 0; w < count; ++w) {
    const std::int64_t ddx = voters.dx[w] - a.dx;
    const std::int64_t ddy = voters.dy[w] - a.dy;
    const std::int64_t dd = ddx * ddx + ddy * ddy;
    if (dd > widest2) continue;
    const std::int64_t px = voters.x[w] - a.x;
    const std::int64_t py = voters.y[w] - a.y;
    const std::int64_t pp = px * px + py * py;
    for (std::size_t i = 0; i < kScores; ++i) {
      if (dd > radius2[i]) continue;
      // The second score alone takes a voter at the very limit as far.
      const bool near = i == 1 ? pp < near2 : pp <= near2;
      sums[i] += near ? voters.near_votes[i][w] : voters.far_votes[i][w];
    }
  }
}

[[gnu::always_inline]] inline std::int32_t held_distance(std::int32_t a, std::int32_t b, std::int32_t most) {
  const std::int32_t distance = a > b ? a - b : b - a;
  return distance < most ? distance : most;
}

// Lengths are held just above the longest that counts, so that their squares stay in 32 bits and every
// comparison comes out as with the full ones.
[[gnu::always_inline]] inline void sum_narrow(const VoterColumns& voters, std::size_t count,
                                              const VoteLimits& limits, const VotedFor& a, VoteSums& sums) {
  const std::int32_t* const dx = voters.dx.data();
  const std::int32_t* const dy = voters.dy.data();
  const std::int32_t* const x = voters.x.data();
  const std::int32_t* const y = voters.y.data();
  const std::int32_t* near[kScores];
  const std::int32_t* far[kScores];
  std::int32_t radius2[kScores];
  std::int32_t longest = 0;
  for (std::size_t i = 0; i < kScores; ++i) {
    near[i] = voters.near_votes[i].data();
    far[i] = voters.far_votes[i].data();
    const auto radius = static_cast<std::int32_t>(limits.radius[i]);
    radius2[i] = radius * radius;
    longest = radius > longest ? radius : longest;
  }
  const std::int32_t past_longest = longest + 1;
  const auto near_limit = static_cast<std::int32_t>(limits.near);
  const std::int32_t near2 = near_limit * near_limit;
  const std::int32_t past_near = near_limit + 1;
  std::int32_t sum0 = 0;
  std::int32_t sum1 = 0;
  std::int32_t sum2 = 0;
  std::int32_t sum3 = 0;
  const std::size_t whole = count / kVoterBlock * kVoterBlock;
  for (std::size_t w = 0; w < whole; ++w) {
    const std::int32_t ddx = held_distance(dx[w], a.dx, past_longest);
    const std::int32_t ddy = held_distance(dy[w], a.dy, past_longest);
    const std::int32_t dd = ddx * ddx + ddy * ddy;
    const std::int32_t px = held_distance(x[w], a.x, past_near);
    const std::int32_t py = held_distance(y[w], a.y, past_near);
    const std::int32_t pp = px * px + py * py;
    const std::int32_t n0 = near[0][w], n1 = near[1][w], n2 = near[2][w], n3 = near[3][w];
    const std::int32_t f0 = far[0][w], f1 = far[1][w], f2 = far[2][w], f3 = far[3][w];
    const std::int32_t v0 = pp <= near2 ? n0 : f0;
    const std::int32_t v1 = pp < near2 ? n1 : f1;  // at the very limit is far for this score alone
    const std::int32_t v2 = pp <= near2 ? n2 : f2;
    const std::int32_t v3 = pp <= near2 ? n3 : f3;
    sum0 += dd <= radius2[0] ? v0 : 0;
    sum1 += dd <= radius2[1] ? v1 : 0;
    sum2 += dd <= radius2[2] ? v2 : 0;
    sum3 += dd <= radius2[3] ? v3 : 0;
  }
  sums[0] += sum0;
  sums[1] += sum1;
  sums[2] += sum2;
  sums[3] += sum3;
}

TWINTRUE_TARGET_AVX2 void sum_avx2(const VoterColumns& voters, std::size_t count, const VoteLimits& limits,
                                   const VotedFor& vector, VoteSums& sums) {
  sum_narrow(voters, count, limits, vector, sums);
}
TWINTRUE_TARGET_AVX512 void sum_avx512(const VoterColumns& voters, std::size_t count,
                                       const VoteLimits& limits, const VotedFor& vector, VoteSums& sums) {
  sum_narrow(voters, count, limits, vector, sums);
}

}  // namespace

SumVotesFn sum_votes(twintrue::InstructionSet set, const VoteLimits& limits, std::size_t count,
                     std::int64_t most_votes) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  const std::int64_t longest =
      std::max(limits.near, *std::max_element(limits.radius.begin(), limits.radius.end()));
  if (longest > kLongestNarrow ||
      most_votes > kMost / std::max<std::int64_t>(1, static_cast<std::int64_t>(count)))
    return sum_wide;
  return twintrue::for_set<SumVotesFn>(set, sum_wide, sum_avx2, sum_avx512);
}

}  // namespace fpu

// The fast correction against the plain one: every score and rank, and the gmv.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>

#include "PlainCorrection.h"
#include "base/InstructionSet.h"
#include "matching/Correction.h"
#include "matching/MatchScene.h"
#include "matching/MatchSet.h"
#include "matching/Matching.h"
#include "matching/VoteKernel.h"

namespace fpu {
namespace {

using namespace matching_tests;

TEST(PlainCorrectionTest, TheFastFormGivesTheSame) {
  std::mt19937 random(17);
  // The second raster has cells of more vectors than are scored, the last one nine cells that are all full.
  const Raster rasters[] = {
      {}, {2, 1, 120, 160, 300}, {9, 7, 17, 23, 6}, {1, 4, 90, 50, 40}, {3, 3, 20, 20, 30}};
  for (int round = 0; round < 80; ++round) {
    Scene scene(rasters[round % 5]);
    fill_randomly(*scene.a, random, uniform_int(random, 3, 500), 32);
    fill_randomly(*scene.b, random, uniform_int(random, 2, 500), 32);
    MatchingSettings& matching = scene.unit.matchingSettings;
    matching.k = 1;
    matching.max_vector_h = matching.max_vector_v = uniform_int(random, 5, 60);
    MatchSet matched(scene.unit, 1);
    match_cells(matching, *scene.a, *scene.b, matched);
    // What votes and scores look at besides places: the second candidate, and the previous pair.
    for (MatchVector& v : matched.vectors) {
      v.candidate = uniform_int(random, 0, 1);
      v.prev_state = uniform_int(random, 0, 2);
    }
    for (KeyPointRecord& a : scene.a->store.records) a.link = uniform_int(random, -1, 6);
    matched.records.resize(5);
    for (MatchRecord& record : matched.records) {
      for (auto* score : {&record.score1, &record.score2, &record.score3, &record.score4}) {
        *score = uniform_int(random, -5, 300);
      }
    }

    CorrectionSettings settings = scene.unit.mvcSettings;
    // Radii and limits beyond 32 bits when squared, and votes that could add up to more, included.
    const float most = round % 8 == 7 ? 1e9f : round % 8 == 6 ? 4095.7f : 12.0f;
    for (float& th : settings.th) th = uniform(random, round % 7 == 6 ? -most : 0.0, most);
    const std::int32_t limits[] = {0, 1, 2, 9, -3, 32766, 32767, 2147483647};
    settings.diff_pt_th = limits[uniform_int(random, 0, 7)];
    for (std::int32_t& mode : settings.score_mode) mode = uniform_int(random, 0, 12);
    settings.dist_ratio_shift = uniform_int(random, 0, 5);
    settings.neighbour_mode = uniform_int(random, -1, 4);
    settings.normalizing = uniform_int(random, 0, 4);
    settings.sort_mode = uniform_int(random, 1, 12);
    settings.max_score = 1000000;
    settings.ref_prev_frame_data_mode = uniform_int(random, 0, 12);
    CorrectionSettings plain_settings = settings;
    MatchSet expected = matched;
    plain_matching::correct_cells(plain_settings, *scene.a, *scene.b, expected);
    for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
      SCOPED_TRACE(testing::Message() << "round " << round << ", set " << static_cast<int>(set));
      MatchSet found = matched;
      correct_cells(settings, *scene.a, *scene.b, found, set);
      expect_equal(found, expected);
      ASSERT_FALSE(HasFatalFailure());
      EXPECT_EQ(settings.gmv_x, plain_settings.gmv_x);
      EXPECT_EQ(settings.gmv_y, plain_settings.gmv_y);
    }
  }
}

// Lengths and votes about the largest that 32 bits allow for, and beyond.
TEST(SumVotesTest, TheFastFormGivesTheSameAtTheEndsOfItsRange) {
  constexpr std::size_t kCount = 2 * kVoterBlock;
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kFar = 1 << 29;  // as far as displacements go
  std::mt19937 random(23);
  for (const std::int32_t radius : {0, 1, 32765, 32766, 32767, 46341, kMost}) {
    for (const std::int32_t votes : {1000, kMost / 32, kMost / 32 + 1, kMost}) {
      const bool all_vote = votes > 1000;
      VoteLimits limits{{radius, radius / 2, radius, 0}, radius};
      VoterColumns voters;
      for (std::size_t w = 0; w < kCount; ++w) {
        // Right at a limit, just past it, and far off.
        const std::int32_t lengths[] = {0, 1, radius / 2, radius, radius < kFar ? radius + 1 : kFar, kFar};
        for (auto* column : {&voters.dx, &voters.dy, &voters.x, &voters.y}) {
          const std::int32_t length = all_vote ? 0 : std::min(lengths[uniform_int(random, 0, 5)], kFar);
          column->push_back(w % 2 == 0 ? 0 : w % 4 == 1 ? length : -length);
        }
        for (std::size_t i = 0; i < kScores; ++i) {
          voters.near_votes[i].push_back(i == 3 ? -votes : votes);
          voters.far_votes[i].push_back(i == 3 ? -votes + 1 : votes - 1);
        }
      }
      for (const VotedFor vector : {VotedFor{0, 0, 0, 0}, VotedFor{kFar, -kFar, 7, -kFar}}) {
        VoteSums expected{};
        for (std::size_t w = 0; w < kCount; ++w) {
          const auto length2 = [](std::int64_t x, std::int64_t y) { return x * x + y * y; };
          const auto dd =
              length2(std::int64_t{voters.dx[w]} - vector.dx, std::int64_t{voters.dy[w]} - vector.dy);
          const auto pp = length2(std::int64_t{voters.x[w]} - vector.x, std::int64_t{voters.y[w]} - vector.y);
          for (std::size_t i = 0; i < kScores; ++i) {
            if (dd > limits.radius[i] * limits.radius[i]) continue;
            const bool near = i == 1 ? pp < limits.near * limits.near : pp <= limits.near * limits.near;
            expected[i] += (near ? voters.near_votes : voters.far_votes)[i][w];
          }
        }
        for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
          VoteSums sums{};
          sum_votes(set, limits, kCount, votes)(voters, kCount, limits, vector, sums);
          EXPECT_EQ(sums, expected) << radius << ", " << votes << " votes, set " << static_cast<int>(set);
        }
      }
    }
  }
}

}  // namespace
}  // namespace fpu

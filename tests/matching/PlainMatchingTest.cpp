// The fast search against the plain one: every field of every vector.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "PlainMatching.h"
#include "base/InstructionSet.h"
#include "base/ThreadTeam.h"
#include "matching/AreaKernel.h"
#include "matching/MatchScene.h"
#include "matching/MatchSet.h"
#include "matching/Matching.h"

namespace fpu {
namespace {

using namespace matching_tests;

// Settings that decide what is measured, what is offered and what may be passed over unseen.
void choose_settings(MatchingSettings& s, std::mt19937& random, std::int32_t penalty_mode) {
  s.penalty_mode = penalty_mode;
  s.penalty_rshift = uniform_int(random, penalty_mode == 1 ? -12 : 0, 6);
  s.penalty_res_coeff = uniform(random, -1.0, 3.0);
  s.k = uniform_int(random, 1, 2);
  s.out_mode = 2 * uniform_int(random, 0, 1);
  s.check_circle = uniform_int(random, 0, 3) == 0;
  const std::int32_t weights[] = {0, 0, 1, 3, 40000, -1};
  s.weightDist = weights[uniform_int(random, 0, 5)];
  s.patchSize = uniform_int(random, 0, 40);
  s.max_vector_h = uniform_int(random, -45, 250);
  s.max_vector_v = uniform_int(random, 0, 160);
}

class PlainMatchingTest : public testing::TestWithParam<std::int32_t> {};

TEST_P(PlainMatchingTest, TheFastFormGivesTheSame) {
  std::mt19937 random(static_cast<std::uint32_t>(100 + GetParam()));
  const Raster rasters[] = {
      {}, {1, 1, 240, 160, 400}, {9, 7, 17, 23, 6}, {40, 3, 8, 60, 3}, {3, 3, 90, 50, 70}};
  const std::size_t widths[] = {32, 8, 32, 16, 5, 40, 32, 64, 15, 1, 160};
  for (int round = 0; round < 60; ++round) {
    Scene scene(rasters[round % 5]);
    const std::size_t bytes = widths[round % 11];
    fill_randomly(*scene.a, random, uniform_int(random, 2, 300), bytes);
    fill_randomly(*scene.b, random, uniform_int(random, 1, 500), bytes);
    if (round % 4 == 3) scene.b->store.records[0].octave = 1;
    MatchingSettings& s = scene.unit.matchingSettings;
    choose_settings(s, random, GetParam());
    const std::int32_t candidates = s.out_mode == 2 ? 1 : s.k;
    MatchSet expected(scene.unit, candidates);
    plain_matching::match_cells(s, *scene.a, *scene.b, expected);
    for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
      for (const int threads : {1, 2, 7}) {
        SCOPED_TRACE(testing::Message() << "round " << round << ", set " << static_cast<int>(set) << ", "
                                        << threads << " threads");
        const twintrue::ThreadTeam team(threads);
        MatchSet found(scene.unit, candidates);
        EXPECT_EQ(match_cells(s, *scene.a, *scene.b, found, set), expected.total);
        expect_equal(found, expected);
        ASSERT_FALSE(HasFatalFailure());
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(PenaltyModes, PlainMatchingTest, testing::Values(0, 1, 2, 3, 4, 5, 7));

// Descriptors that differ in every bit, up to more words than a byte can count the bits of.
TEST(AreaKernelTest, CountsEveryBitOfLongDescriptors) {
  for (const std::int32_t bytes : {8, 32, 124, 125, 128, 160, 300}) {
    for (const std::int32_t weight : {0, 3}) {
      Scene scene({1, 1, 240, 160, 20});
      for (int i = 0; i < 18; ++i) add_keypoint(*scene.b, static_cast<float>(30 + i), 40, 9);
      set_descriptors(*scene.b, std::vector(18, Descriptor(static_cast<std::size_t>(bytes), 0xFF)));
      const std::int32_t split = 4 * bytes;
      const DescriptorWords order(bytes, split, weight);
      const PackedKeypoints packed(*scene.b, order);
      const std::vector<std::uint32_t> words(order.count(), 0);
      const Descriptor zeros(descriptor_span(bytes), 0x00);
      const std::uint32_t expected = plain_matching::descriptor_distance(
          zeros.data(), scene.b->descriptors.row(0), bytes, split, weight);
      for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
        std::vector<Lanes<std::uint32_t>> distances(2);
        Lanes<std::uint32_t> minima;
        minima.v.fill(kOutside);
        area_kernel(set).measure(packed, order, {30, 40, 99, 99, words.data()}, {0, 17}, distances.data(),
                                 minima);
        EXPECT_EQ(distances[0].v[0], expected) << bytes << " bytes, set " << static_cast<int>(set);
        EXPECT_EQ(distances[1].v[0], expected) << bytes << " bytes, set " << static_cast<int>(set);
        EXPECT_EQ(distances[1].v[1], kOutside);
      }
    }
  }
}

}  // namespace
}  // namespace fpu

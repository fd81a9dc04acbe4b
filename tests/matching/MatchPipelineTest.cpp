#include "matching/MatchPipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "matching/MatchScene.h"

namespace fpu {
namespace {

using namespace matching_tests;

// A pair of half frames with known truth: frame B shows what frame A shows, moved to the right by 0.3 to 1
// times the largest disparity, with other noise on the descriptors.
struct Truth {
  int keypoints = 2000;
  std::size_t bytes = 32;
  double flips = 0.15;    // share of descriptor bits that differ
  double outliers = 0.2;  // share of keypoints of frame B that show something else
  double missing = 0.4;   // share of keypoints of frame A that frame B lacks
  double disparity = 60.0;
};

// Keypoint of frame B (index) for each keypoint of frame A, or -1.
std::vector<std::int32_t> plant(Scene& scene, const Truth& truth, std::uint32_t seed) {
  std::mt19937 random(seed);
  const GridIF& grid = *scene.a->store.grid;
  const auto share = [&](double part) { return uniform(random, 0, 1) < part; };
  std::vector<Descriptor> rows_a;
  std::vector<Descriptor> rows_b;
  std::vector<std::int32_t> partner;
  for (int i = 0; i < truth.keypoints; ++i) {
    const float x = uniform(random, kMargin, kMargin + grid.areaWidth());
    const float y = uniform(random, kMargin, kMargin + grid.areaHeight());
    // No two keypoints of a frame, nor partners, score alike.
    const auto score_a = static_cast<std::uint16_t>(3000 + i);
    const auto score_b = static_cast<std::uint16_t>(9000 - i);
    if (add_keypoint(*scene.a, x, y, score_a) == nullptr) continue;
    rows_a.push_back(random_descriptor(random, truth.bytes));
    partner.push_back(-1);
    if (share(truth.missing)) continue;
    // Disparity changes smoothly over the picture, as depth does.
    const auto depth = 0.65 + 0.35 * std::sin(x * 0.01) * std::cos(y * 0.013);
    const auto shift = static_cast<float>(truth.disparity * depth);
    const bool outlier = share(truth.outliers);
    const KeyPointRecord* b =
        outlier ? add_keypoint(*scene.b, uniform(random, kMargin, kMargin + grid.areaWidth()), y, score_b)
                : add_keypoint(*scene.b, x + shift + uniform(random, -0.5, 0.5),
                               y + uniform(random, -0.5, 0.5), score_b);
    if (b == nullptr) continue;
    rows_b.push_back(outlier ? random_descriptor(random, truth.bytes) : rows_a.back());
    if (outlier) continue;
    partner.back() = b->index;
    for (std::size_t bit = 0; bit < 8 * truth.bytes; ++bit) {
      if (share(truth.flips)) rows_b.back()[bit / 8] ^= static_cast<unsigned char>(1U << (bit % 8));
    }
  }
  set_descriptors(*scene.a, rows_a);
  set_descriptors(*scene.b, rows_b);
  return partner;
}

// The preset's settings of the match stage.
const std::string kSettings =
    "matching:\n  max_vector_ratio_h: 0.12\n  max_vector_ratio_v: 0.03\n  k: 2\n  out_mode: 2\n"
    "mvc:\n  th: 8.0\n  th2: 4.0\n  th3: 4.0\n  th4: 2.0\n  sort_mode: 9\n  score_mode: 12\n"
    "  neighbour_mode: 3\n  normalizing: 1\n  normalizing_coeff: 256\n";
const std::string kChecks =
    "  check_params:\n    - [1, 30, 20]\n    - [1, 60, 16]\n  ch_bg: 1\n  score_th_bg: 60\n"
    "  long_mv_th_ratio_gmv: 0.5\n";

// The unit of a scene is not made by a file, so it starts with its clock's messages on.
std::unique_ptr<Scene> make_scene(const std::string& text, const Raster& raster = {12, 10, 64, 64, 30}) {
  auto scene = std::make_unique<Scene>(raster);
  scene->unit.timer.printEnabled = false;
  EXPECT_TRUE(scene->load(text, 1));
  return scene;
}

// The preset's scene with planted matches, and a set for it.
struct Planted {
  explicit Planted(std::uint32_t seed, const Truth& truth = {}, const std::string& more = "")
      : scene(make_scene(kSettings + "vdet:\n" + kChecks + more)),
        partner(plant(*scene, truth, seed)),
        set(scene->unit, 1) {}

  std::int32_t match() { return match_frames(*scene->a, *scene->b, &set, false); }

  std::unique_ptr<Scene> scene;
  std::vector<std::int32_t> partner;
  MatchSet set;
};

// Records carry no indices, but walk the cells with the vectors. Each is visited with its vector and the
// place in the cell.
template <class Visit>
void for_each_record(const MatchSet& set, Visit&& visit) {
  auto record = set.records.begin();
  for (std::int32_t cell = 0; cell < set.grid->numCells(); ++cell) {
    for (std::int32_t i = 0; i < set.count(cell); ++i, ++record) visit(*record, set.cell(cell)[i], i);
  }
  EXPECT_EQ(record, set.records.end());
}

TEST(MatchFramesTest, FindsThePlantedMatches) {
  struct Case {
    Truth truth;
    double precision, recall;  // floors, just below what several seeds gave
  };
  Truth noisy;
  Truth short_descriptors;
  short_descriptors.bytes = 8;
  short_descriptors.flips = 0.1;
  short_descriptors.outliers = 0;
  short_descriptors.missing = 0;
  for (const Case& c : {Case{noisy, 0.91, 0.99}, Case{short_descriptors, 0.995, 0.99}}) {
    Planted planted(41, c.truth);
    const auto& [scene, partner, set] = planted;
    const std::int32_t records = planted.match();
    ASSERT_EQ(static_cast<std::size_t>(records), set.records.size());
    for (const auto& keypoint : scene->b->store.records) EXPECT_LE(keypoint.link, 0);  // none is written
    double right = 0;
    double accepted = 0;
    for_each_record(set, [&](const MatchRecord& record, const MatchVector& v, std::int32_t) {
      if (record.accepted == 0) return;
      ++accepted;
      if (planted.partner[static_cast<std::size_t>(v.id_a)] == v.id_b) ++right;
    });
    const auto present =
        static_cast<double>(std::count_if(partner.begin(), partner.end(), [](auto b) { return b >= 0; }));
    EXPECT_EQ(scene->unit.relMatchCount, static_cast<std::int32_t>(accepted));
    EXPECT_GT(right / accepted, c.precision);
    EXPECT_GT(right / present, c.recall);
  }
}

TEST(MatchFramesTest, RecordsTellTheirVectorAndKeypoints) {
  Planted planted(42);
  const Scene& scene = *planted.scene;
  for (fpu::FeatureFrame* frame : {scene.a.get(), scene.b.get()}) {
    for (KeyPointRecord& keypoint : frame->store.records) keypoint.octave = 3;
  }
  ASSERT_GT(planted.match(), 100);
  for_each_record(planted.set, [&](const MatchRecord& r, const MatchVector& v, std::int32_t i) {
    const KeyPointRecord& a = keypoint_a(*scene.a, v);
    const KeyPointRecord& b = keypoint_b(*scene.b, v);
    EXPECT_EQ(a.index, v.id_a);
    EXPECT_EQ(b.index, v.id_b);
    EXPECT_EQ((std::array{r.x_a, r.y_a, r.x_b, r.y_b}), (std::array{a.x, a.y, b.x, b.y}));
    EXPECT_EQ(
        (std::array{r.cell, r.rank, r.score1, r.score2, r.score3, r.score4, r.cost, r.other_cost,
                    r.dist_ratio}),
        (std::array{a.cell, i, v.score1, v.score2, v.score3, v.score4, v.cost, v.other_cost, v.dist_ratio}));
    EXPECT_EQ((std::array{r.prev_dx, r.prev_dy, r.response_a, r.response_b}),
              (std::array{10000.0f, 10000.0f, static_cast<float>(a.score), static_cast<float>(b.score)}));
    EXPECT_EQ((std::array{r.octave_a, r.octave_b, r.prev_state, r.reserved27, r.reserved32}),
              (std::array{3, 3, 0, -1, -1}));
  });
}

TEST(MatchFramesTest, KeptLinksLeadToThePreviousPair) {
  // Three frames of a stream in which everything moves by (8, 3) a frame.
  auto scene = make_scene(
      "matching:\n  max_vector_ratio_h: 0.03\n  max_vector_ratio_v: 0.03\n  k: 1\n"
      "mvc:\n  score_mode: 6\n  normalizing_coeff: 4\n  max_score: 10000\nvdet:\n  ch: 1\n");
  FeatureFrame third(scene->unit);
  FeatureFrame* const frames[] = {scene->a.get(), scene->b.get(), &third};
  std::mt19937 random(44);
  std::vector<Descriptor> rows[3];
  // One more in the second frame, so that a keypoint's number is not its partner's.
  add_keypoint(*frames[1], kMargin + 1, kMargin + 1, 100);
  rows[1].push_back(random_descriptor(random, 16));
  for (int i = 0; i < 300; ++i) {
    const float x = uniform(random, kMargin + 10, 700);
    const float y = uniform(random, kMargin + 10, 600);
    const Descriptor row = random_descriptor(random, 16);
    for (int f = 0; f < 3; ++f) {
      const auto step = static_cast<float>(f);
      if (add_keypoint(*frames[f], x + 8 * step, y + 3 * step, 100) != nullptr) rows[f].push_back(row);
    }
  }
  for (int f = 0; f < 3; ++f) set_descriptors(*frames[f], rows[f]);

  MatchSet set(scene->unit, 1);
  const std::int32_t first_count = match_frames(*frames[0], *frames[1], &set, true);
  ASSERT_GT(first_count, 100);
  const std::vector<MatchRecord> first = set.records;
  std::int32_t linked = 0;
  for (const KeyPointRecord& keypoint : frames[1]->store.records) {
    if (keypoint.link < 0) continue;
    EXPECT_EQ(keypoint.link, keypoint.index);
    ++linked;
  }
  EXPECT_GT(linked, 100);
  for (const KeyPointRecord& keypoint : frames[0]->store.records) EXPECT_LE(keypoint.link, 0);

  ASSERT_GT(match_frames(*frames[1], *frames[2], &set, true), 100);
  std::int32_t agreeing = 0;
  for_each_record(set, [&](const MatchRecord& r, const MatchVector& v, std::int32_t) {
    const std::int32_t link = keypoint_a(*frames[1], v).link;
    if (link < 0 || link >= first_count) {
      EXPECT_EQ(r.prev_dx, 10000.0f);
      EXPECT_EQ(r.prev_state, 0);
      return;
    }
    const MatchRecord& previous = first[static_cast<std::size_t>(link)];
    EXPECT_EQ(r.prev_dx, previous.x_b - previous.x_a);
    EXPECT_EQ(r.prev_dy, previous.y_b - previous.y_a);
    EXPECT_EQ((std::array{r.prev_score1, r.prev_score2, r.prev_score3, r.prev_score4}),
              (std::array{previous.score1, previous.score2, previous.score3, previous.score4}));
    agreeing += r.prev_state == 2 ? 1 : 0;
  });
  EXPECT_GT(agreeing, 50);
}

TEST(MatchFramesTest, NumberedSectionsAreLoadedWhenTheSetAsksForThem) {
  Planted planted(46, {},
                  "matching3:\n  max_vector_ratio_h: 0\nmatching5:\n  penalty_rshift: 99\n  k: 7\n"
                  "mvc3:\n  sort_mode: 2\nvdet3:\n  enabled: 0\nvdet5:\n  rank_th: 1\n");
  FeatureUnit& unit = planted.scene->unit;
  MatchSet& set = planted.set;
  const std::int32_t matched = planted.match();
  const std::int32_t accepted = unit.relMatchCount;
  ASSERT_GT(accepted, 100);

  set.section_index = 3;
  EXPECT_LT(planted.match(), matched);
  EXPECT_EQ(unit.matchingSettings.index, 3);
  EXPECT_EQ(unit.mvcSettings.sort_mode, 2);
  EXPECT_EQ(unit.relMatchCount, 0);
  for (const MatchRecord& record : set.records) EXPECT_EQ(record.accepted, 0);

  // A section that is refused, and one that is missing, leave the settings as they are.
  set.section_index = 5;
  planted.match();
  EXPECT_EQ(unit.matchingSettings.index, 3);
  EXPECT_EQ(unit.matchingSettings.k, 2);
  EXPECT_EQ(unit.mvcSettings.index, 5);
  EXPECT_EQ(unit.mvcSettings.sort_mode, 2);
  EXPECT_EQ(unit.vdetSettings.section, "vdet5");

  set.section_index = 0;
  EXPECT_EQ(planted.match(), matched);
  EXPECT_EQ(unit.vdetSettings.section, "vdet");
}

TEST(MatchFramesTest, MessagesFollowTheStepsAndSwitchedOffChecksAcceptNothing) {
  for (const bool checks : {true, false}) {
    Planted planted(47);
    const auto& [scene, partner, set] = planted;
    scene->unit.timer.printEnabled = true;
    scene->unit.vdetSettings.enabled = checks;
    scene->unit.timer.carry = 1e9;  // of what came before, so no step's
    EXPECT_EQ(scene->unit.relMatchCount, -1);
    testing::internal::CaptureStdout();
    EXPECT_GT(planted.match(), 100);
    const std::string line = " time: [0-9.]+ ms\n";
    const std::string lines = "matching" + line + "correction" + line + (checks ? "flagging" + line : "");
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex(lines));
    const auto accepted = std::count_if(set.records.begin(), set.records.end(),
                                        [](const MatchRecord& record) { return record.accepted == 1; });
    EXPECT_EQ(scene->unit.relMatchCount, accepted);
    EXPECT_EQ(accepted > 0, checks);
  }
}

TEST(ExportMatchesTest, CopiesLeadingWords) {
  Planted planted(48);
  auto& [scene, partner, set] = planted;
  EXPECT_EQ(match_frames(*scene->a, *scene->b, nullptr, false), -7);
  EXPECT_EQ(export_matches(nullptr, nullptr, 1, 96), -7);
  EXPECT_EQ(export_matches(&set, nullptr, 1, 96), 0);
  const std::int32_t count = planted.match();
  ASSERT_EQ(export_matches(&set, nullptr, 0, 0), count);

  struct Words {
    std::int32_t words[24];
  };
  static_assert(sizeof(Words) == 96);
  std::vector<Words> out(static_cast<std::size_t>(count) + 1);
  EXPECT_EQ(export_matches(&set, out.data(), -3, 96), -3);
  EXPECT_EQ(out[0].words[22], 0);
  EXPECT_EQ(export_matches(&set, out.data(), count + 1, 96), count + 1);  // one more than there are
  std::int32_t accepted = 0;
  for (std::size_t i = 0; i < set.records.size(); ++i) {
    EXPECT_EQ(std::memcmp(&out[i], &set.records[i], 96), 0);
    accepted += out[i].words[22];
  }
  EXPECT_EQ(accepted, scene->unit.relMatchCount);
  EXPECT_EQ(out.back().words[0], 0);

  // A stride beyond the record leaves the rest alone.
  std::vector<unsigned char> wide(2 * 200, 0xEE);
  EXPECT_EQ(export_matches(&set, wide.data(), 2, 200), 2);
  EXPECT_EQ(std::memcmp(&wide[200], &set.records[1], sizeof(MatchRecord)), 0);
  EXPECT_EQ(wide[sizeof(MatchRecord)], 0xEE);
}

TEST(MatchFramesDeathTest, CandidatesOtherThanOneAndTwoEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const std::int32_t k : {0, 3}) {
    auto scene = make_scene(kSettings + "vdet:\n" + kChecks);
    scene->unit.matchingSettings.k = k;
    MatchSet set(scene->unit, k);
    EXPECT_EXIT(match_frames(*scene->a, *scene->b, &set, false), testing::KilledBySignal(SIGABRT), "") << k;
  }
}

TEST(MatchSetTest, SizesFollowTheGrid) {
  Scene scene({3, 2, 50, 50, 7});
  for (const auto& [candidates, capacity] :
       std::vector<std::pair<int, int>>{{1, 7}, {2, 14}, {1 << 30, 14}, {-1, 0}}) {
    const MatchSet set(scene.unit, candidates);
    EXPECT_EQ(set.capacity, capacity);
    EXPECT_EQ(set.vectors.size(), static_cast<std::size_t>(6 * capacity));
    EXPECT_GE(set.counts.size(), std::max(set.vectors.size(), std::size_t{6}));
    EXPECT_EQ(set.section_index, 0);
  }
}

}  // namespace
}  // namespace fpu

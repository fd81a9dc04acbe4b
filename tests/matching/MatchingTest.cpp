#include "matching/Matching.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "matching/MatchScene.h"
#include "matching/MatchSet.h"

namespace fpu {
namespace {

using namespace matching_tests;

// Bit by bit over the bytes of a row and what lies behind it.
std::uint32_t reference_distance(const unsigned char* a, const unsigned char* b, int bytes, int split,
                                 std::uint32_t weight) {
  std::uint32_t distance = 0;
  const auto differs = [&](int bit) { return ((a[bit / 8] ^ b[bit / 8]) >> (bit % 8) & 1) != 0; };
  const int whole_bits = bytes / 8 * 64;
  for (int bit = 0; bit < whole_bits; ++bit) {
    if (!differs(bit)) continue;
    const int word_start = bit / 64 * 64;
    if (weight == 0) {
      distance += 1;
    } else if (word_start == split) {
      distance += 1 + weight;
    } else {
      distance += bit < split ? weight : 1;
    }
  }
  for (int bit = whole_bits; bit < whole_bits + bytes % 8 * 32; ++bit) distance += differs(bit) ? 1 : 0;
  return distance;
}

TEST(DescriptorDistanceTest, AgreesWithCountingBits) {
  std::mt19937 random(1);
  for (const int bytes : {1, 5, 7, 8, 12, 16, 31, 32, 40, 64}) {
    for (const int split : {0, 1, 36, 63, 64, 65, 100, 128, 160, 512}) {
      for (const int weight : {0, 1, 2, 5, -1}) {
        const auto a = random_descriptor(random, descriptor_span(bytes) + 1);
        const auto b = random_descriptor(random, descriptor_span(bytes) + 1);
        // From an odd address too.
        for (int offset : {0, 1}) {
          EXPECT_EQ(descriptor_distance(a.data() + offset, b.data() + offset, bytes, split, weight),
                    reference_distance(a.data() + offset, b.data() + offset, bytes, split,
                                       static_cast<std::uint32_t>(weight)))
              << bytes << " bytes, split " << split << ", weight " << weight;
        }
      }
    }
  }
}

TEST(DescriptorDistanceTest, TheWordAtTheSplitCountsBothWays) {
  const Descriptor zeros(32, 0x00);
  const Descriptor ones(32, 0xFF);
  EXPECT_EQ(descriptor_distance(zeros.data(), ones.data(), 32, 128, 3), 128u * 3 + 64u * (1 + 3) + 64u);
  EXPECT_EQ(descriptor_distance(zeros.data(), ones.data(), 32, 0, 0), 256u);
}

TEST(DescriptorDistanceTest, SplitsAtHalfTheBitsOrTheCentralSquare) {
  EXPECT_EQ(descriptor_split_bit(32, 25, 0), 0);
  EXPECT_EQ(descriptor_split_bit(32, 25, 2), 128);
  EXPECT_EQ(descriptor_split_bit(32, 13, 2), 36);
  EXPECT_EQ(descriptor_split_bit(64, 2147483647, 2), 256);
}

TEST(CostRatioTest, FollowsTheFixedPoint) {
  struct Case {
    std::int32_t own, other, offset, shift, sat, ratio;
  };
  for (const Case& c : std::vector<Case>{
           {10, 10, 3, 4, 0, 16},
           {10, 10, 3, 4, 1, 16},
           {3, 3, 3, 4, 1, 15},
           {4, 4, 3, 4, 1, 16},
           {2, 8, 3, 4, 1, 35},
           {3, 3, 3, 4, 2, 16},
           {10, 23, 3, 4, 0, 32},
           {23, 10, 3, 4, 0, 8},
           {0, 8388607, 3, 4, 0, 255},
           {100, 8388607, 3, 31, 0, 255},
           {2, 8, 5, 4, 7, 25},
           {2, 8, 5, 4, -1, 25},
           {0, 9, 0, 4, 0, 255},
           {0, 0, 0, 4, 2, 255},
           {2, 7, -2, 4, 0, 255},
           {1, 7, -3, 4, 0, 0},
       }) {
    MatchVector vector;
    vector.cost = c.own;
    cost_ratio(vector, c.other, c.offset, c.shift, c.sat);
    EXPECT_EQ(vector.dist_ratio, c.ratio) << c.own << " against " << c.other << ", offset " << c.offset;
    EXPECT_EQ(vector.other_cost, c.other);
  }
}

struct Expected {
  std::int32_t id_a, id_b, cost, other_cost, candidate;
  bool operator==(const Expected&) const = default;
};

// All pairs, formula by formula. Cells come in raster order, which within the reach is the order of ties.
class ReferenceMatcher {
 public:
  ReferenceMatcher(const MatchingSettings& settings, const Scene& scene) : s_(settings), scene_(scene) {}

  std::vector<std::vector<Expected>> match() {
    const Grid& grid = scene_.unit.grid;
    std::vector<std::vector<Expected>> cells(static_cast<std::size_t>(grid.numCells()));
    const auto reach_h = std::ceil(s_.max_vector_h / static_cast<double>(grid.cellWidth()));
    const auto reach_v = std::ceil(s_.max_vector_v / static_cast<double>(grid.cellHeight()));
    for (std::int32_t ca = 0; ca < grid.numCells(); ++ca) {
      for (const KeyPointRecord* a : live(*scene_.a, ca)) {
        std::vector<std::pair<std::int64_t, std::int32_t>> found;  // cost, id_b in order of the search
        for (std::int32_t cb = 0; cb < grid.numCells(); ++cb) {
          const std::int32_t columns = grid.numHorzCells();
          if (std::abs(cb % columns - ca % columns) > reach_h) continue;
          if (std::abs(cb / columns - ca / columns) > reach_v) continue;
          for (const KeyPointRecord* b : live(*scene_.b, cb)) {
            if (const auto cost = cost_of(*a, *b); cost >= 0) found.emplace_back(cost, b->index);
          }
        }
        std::stable_sort(found.begin(), found.end(),
                         [](const auto& l, const auto& r) { return l.first < r.first; });
        store(*a, found, cells[static_cast<std::size_t>(ca)]);
      }
    }
    return cells;
  }

 private:
  static std::vector<const KeyPointRecord*> live(const FeatureFrame& frame, std::int32_t cell) {
    std::vector<const KeyPointRecord*> out;
    for (std::int32_t i = 0; i < frame.store.cellCounts[static_cast<std::size_t>(cell)]; ++i) {
      out.push_back(&frame.store.records[static_cast<std::size_t>(cell * frame.store.capacityPerCell + i)]);
    }
    return out;
  }

  int shift() const { return s_.penalty_mode == 0 || s_.penalty_mode == 2 ? 8 : 16; }

  // Negative outside the area.
  std::int64_t cost_of(const KeyPointRecord& a, const KeyPointRecord& b) {
    const auto rounded = [](float v) { return static_cast<std::int64_t>(v >= 0 ? v + 0.5f : v - 0.5f); };
    const std::int64_t dx = std::abs(rounded(b.x) - rounded(a.x));
    const std::int64_t dy = std::abs(rounded(b.y) - rounded(a.y));
    const std::int64_t low = std::min<std::int64_t>(2 * std::min<int>(a.score, b.score), 65535);
    const int r = s_.penalty_rshift;
    std::int64_t penalty = 0;
    bool inside = dx <= s_.max_vector_h && dy <= s_.max_vector_v;
    switch (s_.penalty_mode) {
      case 1:
        penalty = std::min<std::int64_t>(r < 0 ? (dx + dy) * (std::int64_t{1} << -r) : (dx + dy) >> r, 65535);
        break;
      case 2: {
        const std::int64_t hi = std::max(dx, dy);
        const std::int64_t lo = std::min(dx, dy);
        penalty = ((1007 * hi + 441 * lo - (hi < 16 * lo ? 40 * hi : 0) + 512) >> 10) >> r;
        inside = penalty <= s_.max_vector_h && dy <= s_.max_vector_v;
        break;
      }
      case 3:
        penalty = 65535 - low;
        break;
      case 4:
        penalty = ((dx + dy) >> r) * 65536 - low + 65535;
        break;
      case 5:
        penalty = 65535 - static_cast<std::int64_t>(std::min(
                              std::floor(static_cast<float>(b.score) * s_.penalty_res_coeff), 65535.0f));
        break;
      case 7:
        penalty = static_cast<std::int64_t>(draws_() % 4096);
        break;
      default:
        break;
    }
    if (s_.check_circle && s_.penalty_mode != 2) {
      inside = inside && dx * dx + dy * dy <= std::int64_t{s_.max_vector_h} * s_.max_vector_h;
    }
    if (!inside || a.octave != b.octave) return -1;
    return (std::int64_t{distance(a.index, b.index)} << shift()) + penalty;
  }

  std::uint32_t distance(std::int32_t row_a, std::int32_t row_b) const {
    const auto& rows_a = scene_.a->descriptors;
    const auto& rows_b = scene_.b->descriptors;
    const int bytes = rows_a.cols;
    // Short rows are read on into the next ones, and into zeros behind the last.
    const auto span = [&](const cve::XMat_<unsigned char>& rows, std::int32_t row) {
      const unsigned char* const end = rows.row(rows.rows - 1) + bytes;
      Descriptor out(rows.row(row), std::min(rows.row(row) + descriptor_span(bytes), end));
      out.resize(descriptor_span(bytes));
      return out;
    };
    const int half_patch = s_.patchSize / 2;
    const int split = s_.weightDist == 0 ? 0 : std::min((8 * bytes + 1) / 2, half_patch * half_patch);
    return reference_distance(span(rows_a, row_a).data(), span(rows_b, row_b).data(), bytes, split,
                              static_cast<std::uint32_t>(s_.weightDist));
  }

  void store(const KeyPointRecord& a, const std::vector<std::pair<std::int64_t, std::int32_t>>& found,
             std::vector<Expected>& out) const {
    if (found.size() < static_cast<std::size_t>(s_.k)) return;
    const auto best = static_cast<std::int32_t>(found[0].first >> shift());
    const std::int64_t second_raw = found.size() > 1 ? found[1].first : 2147483646;
    const auto second = static_cast<std::int32_t>(second_raw >> shift());
    out.push_back({a.index, found[0].second, best, second, 0});
    if (s_.out_mode == 0 && s_.k == 2) out.push_back({a.index, found[1].second, second, best, 1});
  }

  const MatchingSettings& s_;
  const Scene& scene_;
  std::mt19937 draws_{5489};
};

std::vector<std::vector<Expected>> found_in(const MatchSet& set) {
  std::vector<std::vector<Expected>> cells(static_cast<std::size_t>(set.grid->numCells()));
  for (std::int32_t c = 0; c < set.grid->numCells(); ++c) {
    for (std::int32_t i = 0; i < set.count(c); ++i) {
      const MatchVector& v = set.cell(c)[i];
      cells[static_cast<std::size_t>(c)].push_back({v.id_a, v.id_b, v.cost, v.other_cost, v.candidate});
      EXPECT_EQ(v.cell_a, c);
      EXPECT_EQ(v.rank, -1);
      EXPECT_EQ(v.prev_state, 0);
    }
  }
  return cells;
}

TEST(MatchCellsTest, AgreesWithAllPairs) {
  std::mt19937 random(7);
  const Raster rasters[] = {{}, {1, 1, 240, 160, 60}, {9, 7, 17, 23, 6}};
  for (int round = 0; round < 160; ++round) {
    Scene scene(rasters[round % 3]);
    const std::size_t widths[] = {8, 16, 5};
    const std::size_t bytes = widths[round % 7 == 6 ? 2 : round % 2];
    fill_randomly(*scene.a, random, uniform_int(random, 2, 120), bytes);
    fill_randomly(*scene.b, random, uniform_int(random, 1, 160), bytes);
    scene.a->store.records[0].octave = 1;
    MatchingSettings& s = scene.unit.matchingSettings;
    const int modes[] = {0, 1, 2, 3, 4, 5, 7, 1};
    s.penalty_mode = modes[round % 8];
    s.penalty_rshift = uniform_int(random, s.penalty_mode == 1 ? -9 : 0, 3);
    s.penalty_res_coeff = uniform(random, -1.0, 3.0);
    s.k = uniform_int(random, 1, 2);
    s.out_mode = 2 * uniform_int(random, 0, 1);
    s.check_circle = uniform_int(random, 0, 1) == 1;
    s.weightDist = uniform_int(random, 0, 3);
    s.patchSize = uniform_int(random, 0, 1) == 1 ? 25 : 9;
    s.max_vector_h = uniform_int(random, -1, 90);
    s.max_vector_v = uniform_int(random, 0, 40);
    MatchSet set(scene.unit, s.out_mode == 2 ? 1 : s.k);

    const std::int32_t total = match_cells(s, *scene.a, *scene.b, set);
    std::vector<std::vector<Expected>> expected(static_cast<std::size_t>(set.grid->numCells()));
    if (scene.a->store.count > s.k) expected = ReferenceMatcher(s, scene).match();
    const auto found = found_in(set);
    std::size_t count = 0;
    for (std::size_t c = 0; c < expected.size(); ++c) {
      EXPECT_EQ(found[c], expected[c]) << "round " << round << ", mode " << s.penalty_mode << ", cell " << c;
      count += expected[c].size();
    }
    EXPECT_EQ(static_cast<std::size_t>(total), count);
    EXPECT_EQ(set.total, total);
  }
}

// One keypoint of frame A at (100, 80), fillers far away so that there are more keypoints than k.
struct Pair {
  explicit Pair(const std::vector<std::pair<float, float>>& places_b, std::int32_t k, std::int32_t mode) {
    MatchingSettings& s = scene.unit.matchingSettings;
    s.k = k;
    s.out_mode = 2;
    s.penalty_mode = mode;
    s.penalty_rshift = 0;
    s.max_vector_h = s.max_vector_v = 20;
    add_keypoint(*scene.a, 100, 80, 500);
    add_keypoint(*scene.a, 250, 170, 500);
    add_keypoint(*scene.a, 251, 170, 500);
    for (const auto& [x, y] : places_b) add_keypoint(*scene.b, x, y, 500);
    set_descriptors(*scene.a, std::vector(3, Descriptor(8, 0)));
    set_descriptors(*scene.b, std::vector(places_b.size(), Descriptor(8, 0)));
  }

  // The vectors of the first keypoint's cell.
  std::vector<MatchVector> match() {
    MatchSet set(scene.unit, 1);
    match_cells(scene.unit.matchingSettings, *scene.a, *scene.b, set);
    const std::int32_t cell = scene.a->store.grid->numHorzCells() + 2;
    return {set.cell(cell), set.cell(cell) + set.count(cell)};
  }

  Scene scene;
};

TEST(MatchCellsTest, NeedsAsManyCandidatesAsWanted) {
  EXPECT_TRUE(Pair({{105, 80}}, 2, 1).match().empty());
  EXPECT_EQ(Pair({{105, 80}, {106, 80}}, 2, 1).match().size(), 1u);
  EXPECT_TRUE(Pair({{160, 80}, {161, 80}}, 1, 1).match().empty());
  for (const std::int32_t mode : {0, 1, 2, 3}) {
    const auto alone = Pair({{105, 80}}, 1, mode).match();
    ASSERT_EQ(alone.size(), 1u);
    EXPECT_EQ(alone[0].other_cost, mode == 0 || mode == 2 ? 8388607 : 32767);
    EXPECT_EQ(alone[0].dist_ratio, 255);
  }
}

TEST(MatchCellsTest, EqualDescriptorsGoByThePenalty) {
  const std::vector<std::pair<float, float>> far_first{{110, 80}, {105, 80}};
  EXPECT_EQ(Pair(far_first, 2, 0).match().at(0).id_b, 0);
  EXPECT_EQ(Pair(far_first, 2, 1).match().at(0).id_b, 1);
}

TEST(MatchCellsTest, AnOctagonBoundsTheLengthInModeTwo) {
  for (const auto& [dx, dy] : std::vector<std::pair<int, int>>{
           {0, 0}, {100, 0}, {0, 100}, {960, 60}, {960, 59}, {961, 60}, {700, 700}, {333, 901}}) {
    const int hi = std::max(dx, dy);
    const int lo = std::min(dx, dy);
    const double slope = hi < 16 * lo ? 967.0 : 1007.0;
    const auto length = static_cast<std::int32_t>(std::lround((slope * hi + 441.0 * lo) / 1024.0));
    EXPECT_NEAR(length, std::hypot(dx, dy), 0.04 * hi + 1.0);  // what an octagon of these slopes is off
    for (const std::int32_t max_h : {length, length - 1}) {
      Scene scene({10, 10, 200, 200, 4});
      MatchingSettings& s = scene.unit.matchingSettings;
      s.k = 1;
      s.penalty_mode = 2;
      s.penalty_rshift = 0;
      s.max_vector_h = max_h;
      s.max_vector_v = 1000;
      for (const float x : {30.0f, 1900.0f}) add_keypoint(*scene.a, x, x, 9);
      add_keypoint(*scene.b, 30.0f + static_cast<float>(dx), 30.0f + static_cast<float>(dy), 9);
      set_descriptors(*scene.a, std::vector(2, Descriptor(8, 0)));
      set_descriptors(*scene.b, std::vector(1, Descriptor(8, 0)));
      MatchSet set(scene.unit, 1);
      EXPECT_EQ(match_cells(s, *scene.a, *scene.b, set), max_h == length ? 1 : 0) << dx << ", " << dy;
    }
  }
}

TEST(MatchCellsTest, TooFewKeypointsClearTheSet) {
  Pair pair({{105, 80}, {106, 80}}, 2, 1);
  MatchSet set(pair.scene.unit, 1);
  ASSERT_GT(match_cells(pair.scene.unit.matchingSettings, *pair.scene.a, *pair.scene.b, set), 0);
  pair.scene.a->descriptors.rows = 2;
  EXPECT_EQ(match_cells(pair.scene.unit.matchingSettings, *pair.scene.a, *pair.scene.b, set), 0);
  EXPECT_EQ(set.total, 0);
  EXPECT_EQ(set.count(pair.scene.unit.grid.numHorzCells() + 2), 0);
}

TEST(MatchCellsTest, SettingsAtTheEndsOfTheirRangesStayInBounds) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  std::mt19937 random(3);
  for (const std::int32_t mode : {0, 1, 2, 3, 4, 5, 7}) {
    for (const std::int32_t extreme : {kMost, kLeast}) {
      Scene scene;
      fill_randomly(*scene.a, random, 60, 8);
      fill_randomly(*scene.b, random, 60, 8);
      scene.b->store.records[0].x = std::numeric_limits<float>::quiet_NaN();
      MatchingSettings& s = scene.unit.matchingSettings;
      s.penalty_mode = mode;
      s.penalty_rshift = mode == 1 ? -31 : 0;
      s.penalty_res_coeff = extreme > 0 ? 3e38f : -3e38f;
      s.max_vector_h = s.max_vector_v = extreme;
      s.check_circle = true;
      s.dist_ratio_offset = s.sat_offset = extreme;
      s.dist_ratio_shift = 31;
      s.weightDist = s.patchSize = extreme;
      MatchSet set(scene.unit, 1);  // smaller than k 2 asks for: the cells fill up and no more
      const std::int32_t total = match_cells(s, *scene.a, *scene.b, set);
      if (extreme == kLeast) {
        EXPECT_EQ(total, 0);
      }
      for (std::int32_t c = 0; c < set.grid->numCells(); ++c) {
        EXPECT_LE(set.count(c), set.capacity);
        for (std::int32_t i = 0; i < set.count(c); ++i) {
          EXPECT_GE(set.cell(c)[i].dist_ratio, 0);
          EXPECT_LE(set.cell(c)[i].dist_ratio, 255);
        }
      }
    }
  }
}

TEST(MatchCellsTest, ComparesWithThePreviousPair) {
  struct Case {
    std::int32_t link;
    bool keep_links;
    std::int32_t score3, score4;
    float previous_dx;  // of the linked record; the vector of this pair is (10, 0)
    std::int32_t state;
  };
  for (const Case& c : std::vector<Case>{
           {0, true, 15, 0, 16.0f, 2},
           {0, true, 0, 15, 16.0f, 2},
           {0, true, 15, 0, 16.5f, 1},
           {0, true, 14, 14, 16.0f, 0},
           {0, false, 15, 15, 16.0f, 0},
           {-1, true, 15, 15, 16.0f, 0},
           {1, true, 15, 15, 16.0f, 0},
           {0, true, 15, 15, 100.0f, 1},
       }) {
    Pair pair({{110, 80}, {115, 80}}, 2, 1);
    pair.scene.a->store.records[static_cast<std::size_t>((6 + 2) * 12)].link = c.link;
    pair.scene.unit.matchingSettings.keep_links = c.keep_links;
    pair.scene.unit.matchingSettings.out_mode = 0;
    MatchSet set(pair.scene.unit, 2);
    MatchRecord previous;
    previous.x_a = 50;
    previous.x_b = 50 + c.previous_dx;
    previous.score3 = c.score3;
    previous.score4 = c.score4;
    set.records = {previous};
    match_cells(pair.scene.unit.matchingSettings, *pair.scene.a, *pair.scene.b, set);
    ASSERT_EQ(set.count(8), 2);
    EXPECT_EQ(set.cell(8)[0].prev_state, c.state) << c.previous_dx;
    EXPECT_EQ(set.cell(8)[1].prev_state, c.state) << c.previous_dx;
  }
  // Of long vectors a fifth of the longer one is tolerated: 10 against 12.5 and just more, acc_th being 0.
  for (const float previous_dx : {12.5f, 12.51f}) {
    Pair pair({{110, 80}, {115, 80}}, 2, 1);
    pair.scene.a->store.records[static_cast<std::size_t>((6 + 2) * 12)].link = 0;
    pair.scene.unit.matchingSettings.keep_links = true;
    pair.scene.unit.matchingSettings.acc_th = 0.0f;
    MatchSet set(pair.scene.unit, 1);
    MatchRecord previous;
    previous.x_b = previous_dx;
    previous.score3 = 15;
    set.records = {previous};
    match_cells(pair.scene.unit.matchingSettings, *pair.scene.a, *pair.scene.b, set);
    EXPECT_EQ(set.cell(8)[0].prev_state, previous_dx == 12.5f ? 2 : 1);
  }
}

TEST(MatchCellsTest, ARasterTooFineToNameMatchesNothing) {
  Scene scene({300, 300, 1, 1, 1});
  for (int i = 0; i < 5; ++i) {
    add_keypoint(*scene.a, static_cast<float>(100 + i), 300.0f, 9);
    add_keypoint(*scene.b, static_cast<float>(100 + i), 300.0f, 9);
  }
  set_descriptors(*scene.a, std::vector(5, Descriptor(8, 0)));
  set_descriptors(*scene.b, std::vector(5, Descriptor(8, 0)));
  scene.unit.matchingSettings.max_vector_h = scene.unit.matchingSettings.max_vector_v = 5;
  MatchSet set(scene.unit, 2);
  EXPECT_EQ(match_cells(scene.unit.matchingSettings, *scene.a, *scene.b, set), 0);
}

TEST(MatchCellsTest, PlacesAbove32767AreReadBack) {
  Scene scene({200, 200, 2, 2, 1});
  for (int i = 0; i < 5; ++i) {
    add_keypoint(*scene.a, static_cast<float>(100 + 2 * i), 400.0f, 9);
    add_keypoint(*scene.b, static_cast<float>(102 + 2 * i), 402.0f, 9);
  }
  set_descriptors(*scene.a, std::vector(5, Descriptor(8, 0)));
  set_descriptors(*scene.b, std::vector(5, Descriptor(8, 0)));
  scene.unit.matchingSettings.max_vector_h = scene.unit.matchingSettings.max_vector_v = 2;
  scene.unit.matchingSettings.k = 1;
  MatchSet set(scene.unit, 1);
  ASSERT_EQ(match_cells(scene.unit.matchingSettings, *scene.a, *scene.b, set), 5);
  const std::int32_t cell = 190 * 200 + 40;
  ASSERT_EQ(set.count(cell), 1);
  EXPECT_EQ(keypoint_a(*scene.a, *set.cell(cell)).x, 100.0f);
  EXPECT_EQ(keypoint_b(*scene.b, *set.cell(cell)).y, 402.0f);
}

TEST(MatchCellsDeathTest, AnUnknownPenaltyEndsTheProcessAtTheFirstPair) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Pair pair({{105, 80}, {106, 80}}, 2, 6);
  EXPECT_EXIT(pair.match(), testing::KilledBySignal(SIGABRT), "");
  EXPECT_TRUE(Pair({}, 2, 6).match().empty());
}

}  // namespace
}  // namespace fpu

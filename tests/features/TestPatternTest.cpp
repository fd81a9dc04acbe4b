#include "features/TestPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>

#include "FeatureTestSupport.h"
#include "features/RandomDraws.h"

namespace {

using fpu::PatternPoint;

bool inside(const PatternPoint& point, int q) {
  return point.x >= -q && point.x <= q && point.y >= -q && point.y <= q;
}

bool close_by(const PatternPoint& a, const PatternPoint& b) {
  return a.x >= b.x - 1 && a.x <= b.x + 1 && a.y >= b.y - 1 && a.y <= b.y + 1;
}

TEST(RandomDrawsTest, UniformIntegersSkipTheIncompleteTail) {
  for (const std::int32_t half : {1, 6, 12, 100, 2147483647}) {
    std::mt19937_64 tested(99);
    std::mt19937_64 reference(99);
    const std::uint64_t n = 2 * static_cast<std::uint64_t>(half) + 1;
    const std::uint64_t tail = (~std::uint64_t{0} % n + 1) % n;
    for (int i = 0; i < 1000; ++i) {
      std::uint64_t output = reference();
      while (output > ~std::uint64_t{0} - tail) output = reference();
      const std::int64_t expected = static_cast<std::int64_t>(output % n) - half;
      ASSERT_EQ(fpu::draw_uniform_int(tested, half), expected);
    }
    EXPECT_EQ(tested(), reference());
  }
  std::mt19937_64 engine(5);
  std::mt19937_64 untouched(5);
  EXPECT_EQ(fpu::draw_uniform_int(engine, 0), 0);
  EXPECT_EQ(engine(), untouched());
}

// The polar method by its formula; so many draws meet the scaled branch near the centre a few times.
TEST(RandomDrawsTest, NormalDrawsComeInPairs) {
  std::mt19937_64 tested(7);
  std::mt19937_64 reference(7);
  fpu::NormalDraws normal(2.5);
  int near_centre = 0;
  constexpr int kPairs = 200'000;
  for (int i = 0; i < kPairs; ++i) {
    double a = 0.0;
    double b = 0.0;
    do {
      a = std::ldexp(static_cast<double>(reference()), -63) - 1.0;
      b = std::ldexp(static_cast<double>(reference()), -63) - 1.0;
    } while (a * a + b * b >= 1.0 || a == 0.0 || b == 0.0);
    const double s = a * a + b * b;
    if (s <= 0.0001) ++near_centre;
    const double factor = 2.5 * std::sqrt(-2.0 * std::log(s) / s);
    const double first = normal(tested);
    const double second = normal(tested);
    // A few roundings of either form.
    ASSERT_NEAR(first, factor * a, 1e-12 * std::fabs(factor * a));
    ASSERT_NEAR(second, factor * b, 1e-12 * std::fabs(factor * b));
  }
  EXPECT_GT(near_centre, 0);
}

TEST(TestPatternTest, CandidatesStayInThePatch) {
  for (const std::int32_t patch : {1, 2, 13, 25, 40}) {
    const std::int32_t half = patch / 2;
    for (const std::int32_t mode : {0, 1}) {
      // Deviations far beyond the patch fold back into it.
      for (const float sigma : {0.5f, 5.0f, 1000.0f, 1e30f}) {
        for (const PatternPoint& point : fpu::makePattern(patch, mode, sigma, 42)) {
          ASSERT_LE(std::abs(point.x), half);
          ASSERT_LE(std::abs(point.y), half);
        }
      }
    }
  }
}

// Every mode takes a normal draw that it discards, and all draws come from one state.
TEST(TestPatternTest, CandidatesTakeTheSecondAndThirdOfThreeDraws) {
  for (const std::int32_t mode : {0, 1}) {
    std::mt19937_64 engine(11);
    fpu::NormalDraws normal(4.0);
    const auto coordinate = [&] {
      if (mode == 0) return fpu::draw_uniform_int(engine, 6);
      return static_cast<std::int32_t>(std::fmod(std::trunc(normal(engine)), 7.0));
    };
    for (const PatternPoint& point : fpu::makePattern(13, mode, 4.0f, 11)) {
      normal(engine);
      const std::int32_t x = coordinate();
      ASSERT_EQ(point, (PatternPoint{x, coordinate()})) << mode;
    }
  }
}

TEST(TestPatternDeathTest, UnknownModeEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(fpu::makePattern(13, 2, 1.0f, 42), testing::ExitedWithCode(1), "^mode number 2 is invalid!\n$");
}

// The rules once more, told as a table of verdicts over the whole chain so far.
struct ReferenceChain {
  std::vector<PatternPoint> points;
  int given_up_draws = 0;
};

ReferenceChain reference_chain(const fpu::CandidatePattern& candidates, const fpu::ChainRules& rules) {
  std::mt19937_64 engine(rules.seed);
  std::vector<PatternPoint> chain;
  int given_up_draws = 0;
  const int q = rules.patchSize / 4;
  const int half = rules.patchSize / 2;
  const int quota = std::min((rules.bits + 1) / 2, half * half);
  const bool bit1 = rules.posLimit % 2 == 1;
  const bool bit2 = rules.posLimit / 2 % 2 == 1;
  const bool bit4 = rules.posLimit / 4 % 2 == 1;
  for (int i = 0; i <= rules.bits; ++i) {
    int attempts = 0;
    bool found = false;
    while (!found) {
      const PatternPoint p = candidates[static_cast<std::size_t>(engine() & 511u)];
      const bool zone_ok = rules.weightDist == 0 || (i < quota ? inside(p, q) : !inside(p, q));
      const bool repeats = std::find(chain.begin(), chain.end(), p) != chain.end();
      bool turned_away = false;
      if (zone_ok && rules.posLimit != 0 && attempts >= 9999) ++given_up_draws;
      if (zone_ok && rules.posLimit != 0 && attempts < 9999) {
        const auto at = [&](int k) { return chain[static_cast<std::size_t>(k)]; };
        if (i >= 1 && bit2 && (bit1 || !inside(p, q)) && close_by(p, at(i - 1))) {
          turned_away = true;
          attempts += 1;
        } else if (i > 2 && bit4 && close_by(p, at(i - 2))) {
          turned_away = true;
          attempts += 1;
        } else if (i > 2 && bit4) {
          for (int k = 0; k <= i - 2; ++k) {
            if (close_by(at(k), at(i - 1))) {
              if (close_by(at(k + 1), p)) attempts += 1;
            } else {
              if (close_by(at(k), p) && close_by(at(k + 1), at(i - 1))) attempts += 1;
            }
          }
        }
      }
      found = zone_ok && !repeats && !turned_away;
      if (found) chain.push_back(p);
    }
  }
  return {chain, given_up_draws};
}

// Also what is printed: a line for each draw at which the rules are given up. Returns their number.
int expect_reference_chain(const fpu::CandidatePattern& candidates, const fpu::ChainRules& rules) {
  SCOPED_TRACE(testing::Message() << rules.patchSize << ' ' << rules.weightDist << ' ' << rules.posLimit
                                  << ' ' << rules.bits << ' ' << rules.seed);
  std::ostringstream histogram;
  testing::internal::CaptureStdout();
  std::vector<PatternPoint> chain = fpu::select_chain(candidates, rules, histogram);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(chain.size(), 2 * static_cast<std::size_t>(rules.bits) + 1);
  chain.resize(static_cast<std::size_t>(rules.bits) + 1);
  const ReferenceChain reference = reference_chain(candidates, rules);
  EXPECT_EQ(chain, reference.points);
  std::string expected;
  for (int i = 0; i < reference.given_up_draws; ++i) expected += "GU\n";
  EXPECT_EQ(printed, expected);
  return reference.given_up_draws;
}

TEST(TestPatternTest, ChainKeepsItsRules) {
  for (const std::int32_t patch : {13, 25, 40}) {
    const fpu::CandidatePattern candidates = fpu::makePattern(patch, 0, 1.0f, 42);
    for (const std::int32_t weight : {0, 1}) {
      for (std::int32_t limit = 0; limit < 8; ++limit) {
        for (const std::int32_t bits : {8, 40, 64}) {
          const fpu::ChainRules rules{bits, patch, weight, limit, 77};
          if (fpu::chain_can_be_completed(candidates, rules)) expect_reference_chain(candidates, rules);
        }
      }
    }
  }
}

// Twelve different points, all wanted, in three blocks of neighbours or in two lines: most points give the
// rules up. When they do, and so which candidate comes next, hangs on every count of attempts.
TEST(TestPatternTest, CrowdedCandidatesGiveTheNeighbourRulesUp) {
  fpu::CandidatePattern blocks;
  fpu::CandidatePattern lines;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const int n = static_cast<int>(i % 12);
    blocks[i] = {n / 4 * 3 + n % 2, n / 2 % 2};
    lines[i] = {n % 6, n / 6 * 3};
  }
  int gave_up = 0;
  for (const fpu::CandidatePattern& candidates : {blocks, lines}) {
    for (const std::int32_t limit : {2, 3, 4, 6, 7}) {
      for (std::uint64_t seed = 0; seed < 40; ++seed) {
        gave_up += expect_reference_chain(candidates, {11, 4, 0, limit, seed});
      }
    }
  }
  EXPECT_GT(gave_up, 100);
}

TEST(TestPatternTest, CountsTheCandidatesBeforehand) {
  // 20 different points inside |x|, |y| <= 3 and 30 outside, many times over.
  fpu::CandidatePattern candidates;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const int n = static_cast<int>(i % 50);
    candidates[i] = n < 20 ? PatternPoint{n % 5 - 2, n / 5 - 2} : PatternPoint{6, n - 35};
  }
  const struct {
    std::int32_t bits;
    std::int32_t weight;
    bool ends;
  } cases[] = {
      {48, 0, true},  {49, 0, true}, {50, 0, false}, {39, 1, true},  // 20 inside, 20 outside
      {40, 1, true},                                                 // 20 and 21
      {41, 1, false},                                                // 21 inside
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.bits);
    const fpu::ChainRules rules{test.bits, 13, test.weight, 0, 5};
    ASSERT_EQ(fpu::chain_can_be_completed(candidates, rules), test.ends);
    if (test.ends) expect_reference_chain(candidates, rules);
  }
  // A small patch keeps the quota small: 1 point inside, so as many outside as bits. There are 49.
  EXPECT_TRUE(fpu::chain_can_be_completed(candidates, {49, 3, 1, 0, 5}));
  EXPECT_FALSE(fpu::chain_can_be_completed(candidates, {50, 3, 1, 0, 5}));
}

TEST(TestPatternTest, LeavesTheStepsOfTheChainInAFile) {
  const testing_support::TempDir folder;
  const testing_support::ScopedFolder here(folder.path());
  fpu::DetectorSettings settings;
  settings.desc_bytes = 8;
  settings.seedSelect = 3;
  const fpu::CandidatePattern candidates = fpu::makePattern(13, 0, 1.0f, 42);
  const std::vector<PatternPoint> without = fpu::selectPattern(candidates, settings);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));

  std::filesystem::create_directory("histgram");
  folder.write("histgram/hist_0.csv", std::string(100'000, 'x'));
  const std::vector<PatternPoint> chain = fpu::selectPattern(candidates, settings);
  EXPECT_EQ(chain, without);
  std::string expected = "No, lengthX, lengthY\n";
  for (std::size_t i = 1; i <= 64; ++i) {
    expected += std::to_string(i) + "," + std::to_string(std::abs(chain[i].x - chain[i - 1].x)) + "," +
                std::to_string(std::abs(chain[i].y - chain[i - 1].y)) + "\n";
  }
  EXPECT_EQ(testing_support::read_file("histgram/hist_0.csv"), expected);
}

}  // namespace

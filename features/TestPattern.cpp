#include "features/TestPattern.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "base/Saturate.h"
#include "features/RandomDraws.h"

namespace fpu {
namespace {

constexpr const char* kHistogramFile = "./histgram/hist_0.csv";

// Failed attempts after which a point is no longer held to the neighbour rules.
constexpr std::int32_t kMaxAttempts = 9999;

enum PosLimit : std::int32_t {
  kEverywhere = 1,  // the rule of kNotNearLast holds in the central square too
  kNotNearLast = 2,
  kNotNearSecondLast = 4,
};

bool near(const PatternPoint& a, const PatternPoint& b) {
  return std::abs(a.x - b.x) <= 1 && std::abs(a.y - b.y) <= 1;
}

bool in_central_square(const PatternPoint& point, std::int32_t patchSize) {
  const std::int32_t q = patchSize / 4;
  return std::abs(point.x) <= q && std::abs(point.y) <= q;
}

// Points at the head of the chain that weightDist keeps in the central square.
std::int32_t inner_quota(const ChainRules& rules) {
  const std::int64_t half = rules.patchSize / 2;
  return static_cast<std::int32_t>(std::min<std::int64_t>((rules.bits + 1) / 2, half * half));
}

// One run of the selection.
class ChainSelection {
 public:
  ChainSelection(const CandidatePattern& candidates, const ChainRules& rules)
      : candidates_(candidates), rules_(rules), quota_(inner_quota(rules)), engine_(rules.seed) {
    chain_.reserve(static_cast<std::size_t>(rules.bits) + 1);
  }

  const PatternPoint& pick_next() {
    std::int32_t attempts = 0;
    for (;;) {
      const PatternPoint& candidate = candidates_[engine_() % kCandidates];
      if (in_wrong_zone(candidate)) continue;
      if (rules_.posLimit != 0) {
        if (attempts >= kMaxAttempts) {
          std::fputs("GU\n", stdout);
        } else if (breaks_neighbour_rules(candidate, attempts)) {
          continue;
        }
      }
      if (std::find(chain_.begin(), chain_.end(), candidate) != chain_.end()) continue;
      chain_.push_back(candidate);
      return chain_.back();
    }
  }

  std::vector<PatternPoint> take() { return std::move(chain_); }

 private:
  bool in_wrong_zone(const PatternPoint& candidate) const {
    if (rules_.weightDist == 0) return false;
    const bool inner = static_cast<std::int32_t>(chain_.size()) < quota_;
    return in_central_square(candidate, rules_.patchSize) != inner;
  }

  // True if the candidate is to be drawn again. Raises `attempts` then; the last test below raises it without
  // ever turning a candidate away, and the patterns of existing files depend on that.
  bool breaks_neighbour_rules(const PatternPoint& candidate, std::int32_t& attempts) const {
    const std::size_t i = chain_.size();
    if (i >= 1 && (rules_.posLimit & kNotNearLast) != 0) {
      const bool exempt =
          (rules_.posLimit & kEverywhere) == 0 && in_central_square(candidate, rules_.patchSize);
      if (!exempt && near(candidate, chain_[i - 1])) {
        ++attempts;
        return true;
      }
    }
    if (i > 2 && (rules_.posLimit & kNotNearSecondLast) != 0) {
      if (near(candidate, chain_[i - 2])) {
        ++attempts;
        return true;
      }
      const PatternPoint& last = chain_[i - 1];
      for (std::size_t k = 0; k + 2 <= i; ++k) {
        const bool like_step = near(chain_[k], last)
                                   ? near(chain_[k + 1], candidate)
                                   : near(chain_[k], candidate) && near(chain_[k + 1], last);
        if (like_step) ++attempts;
      }
    }
    return false;
  }

  const CandidatePattern& candidates_;
  const ChainRules rules_;
  const std::int32_t quota_;
  std::mt19937_64 engine_;
  std::vector<PatternPoint> chain_;
};

}  // namespace

CandidatePattern makePattern(std::int32_t patchSize, std::int32_t rnd_mode, float rSigma,
                             std::uint64_t seed) {
  const std::int32_t half = patchSize / 2;
  std::mt19937_64 engine(seed);
  NormalDraws normal(static_cast<double>(rSigma));
  CandidatePattern pattern;
  for (PatternPoint& point : pattern) {
    // Drawn for nothing in every mode: the outputs that it takes are part of what a seed stands for.
    normal(engine);
    switch (rnd_mode) {
      case 0:
        point.x = draw_uniform_int(engine, half);
        point.y = draw_uniform_int(engine, half);
        break;
      case 1:
        point.x = twintrue::truncate_to_int32(normal(engine)) % (half + 1);
        point.y = twintrue::truncate_to_int32(normal(engine)) % (half + 1);
        break;
      default:
        std::fprintf(stderr, "mode number %d is invalid!\n", rnd_mode);
        std::exit(1);
    }
  }
  return pattern;
}

ChainRules chain_rules(const DetectorSettings& settings) {
  return {8 * settings.desc_bytes, settings.patchSize, settings.weightDist, settings.posLimit,
          settings.seedSelect};
}

bool chain_can_be_completed(const CandidatePattern& candidates, const ChainRules& rules) {
  std::vector<PatternPoint> distinct(candidates.begin(), candidates.end());
  std::sort(distinct.begin(), distinct.end(),
            [](const PatternPoint& a, const PatternPoint& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());

  const std::int64_t needed = std::int64_t{rules.bits} + 1;
  const auto all = static_cast<std::int64_t>(distinct.size());
  if (rules.weightDist == 0) return all >= needed;
  const std::int64_t inner = std::count_if(distinct.begin(), distinct.end(), [&](const PatternPoint& point) {
    return in_central_square(point, rules.patchSize);
  });
  const std::int64_t quota = inner_quota(rules);
  return inner >= quota && all - inner >= needed - quota;
}

std::vector<PatternPoint> select_chain(const CandidatePattern& candidates, const ChainRules& rules,
                                       std::ostream& histogram) {
  histogram << "No, lengthX, lengthY\n";
  ChainSelection selection(candidates, rules);
  PatternPoint last = selection.pick_next();
  for (std::int32_t i = 1; i <= rules.bits; ++i) {
    const PatternPoint point = selection.pick_next();
    histogram << fmt::format("{},{},{}\n", i, std::abs(point.x - last.x), std::abs(point.y - last.y));
    last = point;
  }
  std::vector<PatternPoint> chain = selection.take();
  chain.resize(2 * static_cast<std::size_t>(rules.bits) + 1);
  return chain;
}

std::vector<PatternPoint> selectPattern(const CandidatePattern& candidates,
                                        const DetectorSettings& settings) {
  std::ofstream histogram(kHistogramFile);
  if (settings.wta_k != 1) std::abort();
  return select_chain(candidates, chain_rules(settings), histogram);
}

}  // namespace fpu

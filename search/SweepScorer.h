#pragma once

// Scores many poses over one list of matches: what score_matches gives, at the speed of vectors.
//
// What is saved, and why the result stays: rays are unrotated once per pixel offset and turned per pose, many
// matches run side by side (SweepKernel.h), and a pose is left as soon as all that its remaining matches
// could add would not lift it to the score that a kept pose has already. Scores agree with the plain form to
// 1e-9; where that is too little to say which pose is kept, the plain form decides.

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "base/InstructionSet.h"
#include "lens/RigModel.h"
#include "search/CalibContext.h"
#include "search/MatchScore.h"
#include "search/PoseCandidate.h"
#include "search/RayMatch.h"
#include "search/SweepKernel.h"

namespace twintrue {

// Relative distance to the plain form that scores keep.
inline constexpr double kSweepTolerance = 1e-9;

// Smaller scores don't keep it: the kernel's exponential ends at 1e-304, and sums of such terms are left to
// the plain form.
inline constexpr double kLeastTrustedScore = 1e-280;

// The score that a pose must have here so that its plain one may reach `least`.
double least_to_keep(double least);

// Doubles whose first stands where a widest vector's would: no load of a block then spans two cache lines.
template <typename T>
struct VectorAligned {
  using value_type = T;
  static constexpr std::align_val_t kAlignment{64};

  VectorAligned() = default;
  template <typename U>
  VectorAligned(const VectorAligned<U>&) {}
  T* allocate(std::size_t count) { return static_cast<T*>(::operator new(count * sizeof(T), kAlignment)); }
  void deallocate(T* memory, std::size_t) { ::operator delete(memory, kAlignment); }
  friend bool operator==(const VectorAligned&, const VectorAligned&) { return true; }
};
using AlignedDoubles = std::vector<double, VectorAligned<double>>;

// One object serves all levels of a search: where the next level walks the same matches, it finds them laid
// out, and the rays of the pose that it starts from as well.
class SweepScorer {
 public:
  // The context, the rig and the matches must outlive the object.
  SweepScorer(const CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
              twintrue::InstructionSet set = twintrue::best_instruction_set());
  // A rig that ends with the call would leave the object without one.
  SweepScorer(const CalibContext&, RigState&&, const std::vector<RayMatch>&,
              twintrue::InstructionSet = twintrue::best_instruction_set()) = delete;

  // False for passes that end at the first valid match: they need the matches in their order.
  static bool serves(const CalibContext& context, const ScorePass& pass);

  // Turns to a pass, whose score table the context must hold already. Only the matches that the pass's limits
  // let through are laid out.
  void begin(const ScorePass& pass);

  // Readies the rays for poses with these offsets; a pose may be scored only then. Drops the rays that no
  // pose of the batch needs. Works in parallel.
  void prepare(const std::vector<PoseCandidate>& poses);

  // Scores a pose that was prepared, and lays the matches out anew, those first that add least under it. What
  // a good pose loses it then loses early, mostly to wrong matches that fit no pose, and a worse one is left
  // as soon as it loses a little more. Only for sums in which a match can be told hopeless; else nothing is
  // done and nothing returned. Works in parallel.
  std::optional<double> put_least_first(const CalibResult& pose);

  // Bytes of rays that one more pair of offsets takes.
  std::size_t ray_bytes() const { return 3 * sizeof(double) * size_; }

  // The score of a pose, or minus infinity for one that can't reach least_to_keep(least). Aborts on an
  // unknown weight mode as soon as a match has an error. Thread-safe.
  double score(const CalibResult& pose, double least) const;

  // Whether no match has an error under the pose. Thread-safe.
  bool counts_no_match(const CalibResult& pose) const;

 private:
  // Matches that share a form of the error, as a range of the laid-out list.
  struct Group {
    std::size_t begin;
    std::size_t end;
    SweepError error;
    SweepErrorsFn errors;
  };
  struct Rays {
    AlignedDoubles x, y, z;
  };
  using Offsets = std::pair<double, double>;
  using RayCache = std::map<Offsets, Rays>;

  // Matches that a thread takes at a time where one pose or one pair of offsets is shared out.
  static constexpr std::size_t kChunk = 16 * kSweepBlock;
  std::size_t chunk_count() const { return (size_ + kChunk - 1) / kChunk; }

  void lay_out(std::size_t walked, bool one_eye);
  // Terms of matches with these errors, 0 for one that adds nothing. The sum of the weights, where the
  // divider asks for it.
  double terms_of(const double* errors, std::size_t count, double* terms) const;
  void unrotated_rays(const EyeModel& eye, bool left, const Offsets& offsets, std::size_t begin,
                      std::size_t end, Rays& rays) const;
  void prepare_eye(const EyeModel& eye, bool left, const std::vector<PoseCandidate>& poses, RayCache& cache);
  SweepPose pose_for_kernel(const CalibResult& pose) const;
  // Calls visit(errors, count) block by block, over the matches from `begin` to before `end`, until it
  // returns false.
  template <typename Visit>
  void visit_errors(const CalibResult& pose, std::size_t begin, std::size_t end, Visit&& visit) const;

  const CalibContext& context_;
  const RigState& rig_;
  const std::vector<RayMatch>& matches_;
  twintrue::InstructionSet set_;
  ScorePass pass_;
  std::optional<std::size_t> walked_;  // of the list, when it was laid out
  std::size_t size_ = 0;
  AlignedDoubles x_a_, y_a_, x_b_, y_b_;
  AlignedDoubles x_left_;  // of the left eye's keypoint in the frame
  std::vector<Group> groups_;
  RayCache left_rays_, right_rays_;
  // Kept from level to level, since fresh memory costs more than what is done in it.
  std::vector<Rays> spare_rays_;
  std::vector<AlignedDoubles> reordered_;
  AlignedDoubles terms_;
  std::vector<std::uint8_t> steps_;
  std::vector<std::uint32_t> order_;
  SweepExpFn exp_;
  SweepRaysFn rays_;
  double exp_factor_ = 0.0;  // of the weight modes that are an exponential; 0: another mode
  bool bounded_ = false;     // no term exceeds 1 and none is negative
};

}  // namespace twintrue

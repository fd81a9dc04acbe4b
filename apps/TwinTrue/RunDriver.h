#pragma once

// One calibration run from the converted frame to the corrected lens file. The run owns every object that it
// makes and frees them on every path; nothing outlives it.
//
// The steps that a look at single stages needs too are functions of their own.

#include <cstdint>
#include <string>
#include <vector>

#include "features/FeatureUnit.h"
#include "imaging/XMat.h"
#include "lens/LensParameters.h"
#include "lens/RigModel.h"
#include "matching/MatchSet.h"
#include "search/CalibContext.h"
#include "search/PoseSearch.h"
#include "search/RayMatch.h"
#include "twintrue/calib.h"

namespace twintrue {

struct RunPaths {
  std::string lens;
  std::string params;    // a file, or the text of the settings
  std::string out_lens;  // empty: write none
};

struct HalfFrames;

// Sees what a run's result rests on. Called by the thread of the run.
class RunObserver {
 public:
  virtual ~RunObserver() = default;
  // Before anything is looked at. The halves are views of the converted frame, which goes soon after.
  virtual void on_halves([[maybe_unused]] const RigState& rig, [[maybe_unused]] const HalfFrames& halves) {}
  // After the test of a count; `enough` tells whether the run goes on with it. The left half of the frame is
  // the right eye's picture.
  virtual void on_keypoints([[maybe_unused]] bool left_half, [[maybe_unused]] std::int32_t count,
                            [[maybe_unused]] bool enough) {}
  virtual void on_records([[maybe_unused]] std::int32_t count, [[maybe_unused]] bool enough) {}
  // Matches that go into the search.
  virtual void on_accepted([[maybe_unused]] std::int32_t count) {}
  // Who watches the search; null: nobody.
  virtual SearchObserver* search_observer() { return nullptr; }
  // After the search: the matches are those that it had, in its order; `rig` is as read from the lens file.
  virtual void on_searched([[maybe_unused]] const CalibContext& context, [[maybe_unused]] const RigState& rig,
                           [[maybe_unused]] const std::vector<RayMatch>& matches,
                           [[maybe_unused]] const CalibResult& result) {}
};

// What a run says when a count is too low; the field takes the count.
inline constexpr const char* kFewLeftKeypoints = "Left image detection is failed({})\n";
inline constexpr const char* kFewRightKeypoints = "Right image detection is failed({})\n";
inline constexpr const char* kFewMatches = "Matching is failed({})\n";

// Whether enough of the places that a run wants are filled: keypoints and matches are to fill so many ranks
// of each cell.
class CountTest {
 public:
  CountTest(const CalibContext& context, std::int32_t cells);

  // Whether the count is high enough. Prints the message if not.
  bool passes(std::int32_t count, const char* message) const;

 private:
  double reciprocal_;
  double threshold_;
};

// Record of a run that hasn't searched yet: ten zeros and four times -1.
CalibResult starting_result();

// Size in pixels of one half of the frame as the features see it: a multiple of 16 in both directions. The
// lens file decides, not the picture.
cve::Size half_frame_size(const RigState& rig);

// The two halves as headers over the frame, which they keep alive. The right one starts at exactly half of
// the lens file's frame width. A frame that is smaller than the halves need is replaced by a copy with zeros
// round it, so that no header reaches outside memory.
struct HalfFrames {
  cve::XMat_<float> left;
  cve::XMat_<float> right;
};
HalfFrames half_frames(cve::XMat_<float>& frame, const RigState& rig);

// Reads the lens file; false, with its reason said, if the model is not fit for projection. `rig` must be
// new.
bool read_lens(RigState& rig, const std::string& path);

// Keypoints and descriptors of a half. A picture of another size than the frame store's is not looked at and
// gives 0.
std::int32_t detect_half(const cve::XMat_<float>& half, fpu::FeatureFrame& frame);

// The store for a match stage run of that unit. Aborts on an out_mode other than 0 and 2.
fpu::MatchSet make_match_set(fpu::FeatureUnit& unit);

// The records that flagging accepted, in their order.
std::vector<RayMatch> accepted_matches(const fpu::MatchSet& set);

// Writes the lens file at `lens_path` anew with the pose of `result` put in.
void write_corrected_lens(const std::string& lens_path, const CalibResult& result,
                          const std::string& out_path);

// Runs a calibration on the converted frame and fills `result`, which starts as starting_result(). `frame` is
// used up. Returns a status of calib(). Prints the run's messages; throws what memory and threads may throw.
// `observer` may be null.
std::int32_t run_driver(cve::XMat_<float>& frame, const RunPaths& paths, bool ignore_thresholds,
                        CalibResult& result, RunObserver* observer = nullptr);

}  // namespace twintrue

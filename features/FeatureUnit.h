#pragma once

// The object that a parameter file turns into: grid, detector, and the settings of the match stage.

#include <cstdint>
#include <memory>
#include <string>

#include "features/FeatureFrame.h"
#include "features/Grid.h"
#include "features/MatchSettings.h"
#include "features/RENO.h"
#include "features/Timer.h"
#include "imaging/XMat.h"
#include "params/ParamDocument.h"

namespace fpu {

// Negative results of FeatureUnit's operations.
enum FeatureStatus : std::int32_t {
  kInitFailed = -1,      // no detector, no document root, or settings that did not load
  kNotOpened = -4,       // init on a unit whose file was not read
  kNotReady = -5,        // getParam before init has finished
  kUnknownName = -8,     // getParam: no such name
  kUnsuitableKind = -9,  // getParam: the output kind does not suit the value
};

// Thread-safety: all calls come from one thread; the parallel work happens inside.
class FeatureUnit {
 public:
  FeatureUnit();
  FeatureUnit(const FeatureUnit&) = delete;
  FeatureUnit& operator=(const FeatureUnit&) = delete;

  // Opened unit -> ready unit. 0, kInitFailed or kNotOpened. Aborts on an out_mode other than 0 and 2.
  std::int32_t init();

  // Keypoints and descriptors of one image; returns the number of keypoints. The image is the caller's and
  // has the unit's frame size.
  std::int32_t detectAndDescribe(const cve::XMat& image, KeyPointStore& store,
                                 cve::XMat_<unsigned char>& descriptors);

  // A number by name: the cell counts and sizes, the capacities, `rel_match_count`. 0, or a negative status
  // with *out untouched.
  std::int32_t getParam(const char* name, std::int32_t* out) const;

  bool opened = false;
  bool ready = false;
  std::int32_t frameWidth = 0;  // pixels of one image
  std::int32_t frameHeight = 0;
  twintrue::ParamDocument document;
  Grid grid;
  std::unique_ptr<RENO> detector;
  CorrectionSettings mvcSettings;
  MatchingSettings matchingSettings;
  CheckSettings vdetSettings;
  Timer timer;
  bool verbose = false;
  std::int32_t relMatchCount = -1;  // records that the last match_frames accepted
};

// A ready unit for images of that size from a parameter file (or its text), or null: a size below 1, a file
// that can't be loaded, a failed init. Exceptions of the load go to standard error as their text.
std::unique_ptr<FeatureUnit> createFeatureUnit(const std::string& paramPath, std::int32_t width,
                                               std::int32_t height);

}  // namespace fpu

#pragma once

// The object that a parameter file turns into: grid, detector, and the settings of the match stage.

#include <cstddef>
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

// Forms in which getParam can write a value.
enum ParamKind : std::int32_t {
  kParamDouble = 0,
  kParamText = 1,  // decimal, cut to the buffer, whose last byte is always a terminator
  kParamInt32 = 2,
};

// Thread-safety: all calls come from one thread; the parallel work happens inside.
class FeatureUnit {
 public:
  FeatureUnit();
  FeatureUnit(const FeatureUnit&) = delete;
  FeatureUnit& operator=(const FeatureUnit&) = delete;

  // Opened unit -> ready unit. 0, kInitFailed or kNotOpened; also fails for settings under which a stage
  // would leave its arrays or never end. Aborts on an out_mode other than 0 and 2. Prints a line break to
  // standard output. Throws what RENO::read throws.
  std::int32_t init();

  // Keypoints and descriptors of one image; returns the number of keypoints, those that the sub-pixel step
  // dropped included. The image is the caller's: 8-bit, or 32-bit float with linear values 0 to 1. An image
  // of another size than the unit's frames has no keypoints. See RENO_Impl for the settings that abort.
  std::int32_t detectAndDescribe(const cve::XMat& image, KeyPointStore& store,
                                 cve::XMat_<unsigned char>& descriptors);

  // A number by name: the cell counts and sizes, the capacities, `rel_match_count`. 0, or a negative status
  // with *out untouched.
  std::int32_t getParam(const char* name, std::int32_t* out) const;

  // The same in a form of choice, into a buffer of that many bytes; one that is too small is kUnsuitableKind.
  // The version `ver_str` exists as text only.
  std::int32_t getParam(const char* name, std::int32_t kind, void* out, std::size_t bytes) const;

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

// A ready unit for images of that size, or null: a size below 1, a document that is not loaded, a failed
// init. Exceptions of the load go to standard error as their text. The unit keeps the document: what other
// stages read from the same file is to be had there.
std::unique_ptr<FeatureUnit> createFeatureUnit(twintrue::ParamDocument&& document, std::int32_t width,
                                               std::int32_t height);

// The same from a parameter file, or its text (see param_document_open).
std::unique_ptr<FeatureUnit> createFeatureUnit(const std::string& paramPath, std::int32_t width,
                                               std::int32_t height);

}  // namespace fpu

#pragma once

// What a lens file says: the two formats, how their values become a rig, and how a rig is written back.
//
// Format 1 is in millimetres, radians and plain ratios. Format 2 is in integers of the sensor's side:
// nanometres, thousandths of a degree, fixed-point factors. The rig is the same for both, but each eye
// remembers the format's number, since it also selects a variant of the projection.
//
// None of the objects here may be used on several threads at a time.

#include <cstdint>
#include <memory>
#include <string>

#include "lens/LensLanguage.h"
#include "lens/RigModel.h"

namespace twintrue {

// Section of a lens file that describes the lens.
inline constexpr const char* kLensSection = "OPTRA";

enum class LensFormat : std::uint32_t { kNone = 0, k1 = 1, k2 = 2 };

// The values of one lens file, in the units of its format. The members of the two classes carry the names of
// the file's keys.
class LensParameters {
 public:
  // Fills a rig. Throws LensModelError if `ideal_height_precision_bit` or `ideal_height_lut_max` ask for an
  // impossible table. Values that read() found fault with are taken as they are.
  virtual void fill_rig(RigModel& rig) const = 0;

  virtual ~LensParameters() = default;
};

// Reads a lens file into rig_state.current and makes rig_state.reference a copy of it. Returns 1, or 0 if the
// file can't be read or describes no lens: the eyes must not be projected with then. Values out of range
// print a message and still give 1: see rig_is_usable(). Throws LensModelError like fill_rig(), with the
// record half filled.
int load_lens_description(RigState& rig_state, const std::string& path, const std::string& section);

// Writes a rig as a lens file of the format that its left eye remembers. What the rig doesn't hold comes out
// as a constant or zero; the table's fineness is left out, so a reader takes the defaults. Returns whether
// the file was written; an old file of that name stays whole if not. A path with the ending ".pin" can't be
// read back. Throws LensModelError if the eyes were never filled.
bool write_lens_description(const RigModel& rig, const std::string& path);

}  // namespace twintrue

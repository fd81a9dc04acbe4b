#pragma once

// Whether a result is to be trusted. calib()'s own numbers count the matches that fit; a wrong lens file, one
// picture twice or a scene without depth can fit as well as the truth does, so what the matches say beyond
// that decides too.

#include <cstddef>
#include <string>
#include <vector>

#include "verdict/Evidence.h"

namespace twintrue {

// Key of the reason that stands alone, since all else that is wrong follows from it.
inline constexpr const char* kExchangedHalves = "exchanged_halves";

struct VerdictReason {
  std::string key;    // for programs
  std::string found;  // a sentence
  std::string to_do;  // a sentence
};

struct Verdict {
  enum class Outcome { kCalibrated, kCalibratedBut, kNotCalibrated };
  Outcome outcome = Outcome::kCalibrated;
  std::vector<VerdictReason> reasons;  // those of the outcome and of weaker ones; none if calibrated
};

// What the evidence says of a result.
Verdict judge_evidence(const Evidence& evidence);

// In JSON: calibrated, calibrated_but, not_calibrated.
const char* name_of(Verdict::Outcome outcome);
// In the table: "calibrated", "calibrated, but ...", "not calibrated".
const char* words_of(Verdict::Outcome outcome);

// Deviation of one eye's value that is taken for granted before any match, radians or pixels. `value` counts
// pan, tilt, roll, offset x, offset y.
double prior_of(std::size_t value, double frame_width);

// Whether the matches leave a value as good as open: they know it hardly better than was known before them.
bool is_open(double deviation, double prior);

}  // namespace twintrue

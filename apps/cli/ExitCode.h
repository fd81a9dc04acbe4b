#pragma once

namespace twintrue::cli {

// What the program tells its caller. The numbers are documented in --help and never change their meaning.
enum class ExitCode : int {
  kCalibrated = 0,
  kOther = 1,            // output not written, no memory, a machine that can't run the search
  kUsage = 2,            // the arguments can't be carried out
  kInputUnreadable = 3,  // an input file is missing, unreadable or no picture
  kFileUnusable = 4,     // the lens file or the settings were read and can't be used
  kTooFewMatches = 5,
  kQualityFailed = 6,
};

}  // namespace twintrue::cli

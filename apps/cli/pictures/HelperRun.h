#pragma once

// Runs the picture helper: a process of its own, so that the faults of the many picture libraries end there.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace twintrue::cli {

// How a helper is run. The system holds it to all limits; it takes no part in that.
struct HelperRun {
  std::string program;                    // path of the executable file
  std::chrono::milliseconds time{30000};  // wall time; each processor's time is bounded by as much
  // Address space, in bytes. The largest frame takes 4 GiB as four channels of floats, and 0.75 GiB as bytes;
  // the libraries themselves take half a GiB, and the rest is for what they keep beside the samples. Builds
  // with sanitizers have no such limit, since a sanitizer maps terabytes.
  std::uint64_t memory = std::uint64_t{8} << 30;
  std::uint64_t file_bytes = 0;  // that it may write to one file; 0: no limit
  // For tests: called in the child, with the arguments, instead of the program.
  int (*stand_in)(int argc, char** argv) = nullptr;
};

struct HelperEnd {
  enum class How { kExit, kSignal, kTime } how = How::kExit;
  int number = 0;    // exit code or signal
  std::string said;  // the beginning of what it wrote to its standard error
};

// Runs the helper to its end. `files` become its descriptors 3, 4, ...; all others are closed, standard input
// and output are the null device, and of the environment it gets what its loader and a sanitizer need. A
// helper that is over its time is killed. It dies with the thread that calls this. Throws std::system_error
// if no process can be made. Safe from several threads at a time.
HelperEnd run_helper(const HelperRun& run, const std::vector<std::string>& arguments,
                     const std::vector<int>& files);

}  // namespace twintrue::cli

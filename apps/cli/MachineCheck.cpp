#include "apps/cli/MachineCheck.h"

#include <thread>

#include "apps/cli/Problem.h"

namespace twintrue::cli {

// Converting the frame needs two threads that run at the same time; with one the library would end the
// process.
void check_machine() {
  if (std::thread::hardware_concurrency() != 1) return;
  throw Failure(ExitCode::kOther,
                Problem{"this machine", "one processor that the program may use", "two or more",
                        "allow it more processors (taskset, container limits), or use another machine"});
}

}  // namespace twintrue::cli

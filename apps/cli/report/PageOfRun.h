#pragma once

// From what a run holds at its end to its page.

#include <string>

#include "apps/cli/RunReport.h"
#include "apps/cli/pictures/Frame.h"
#include "apps/cli/report/RunInputs.h"
#include "apps/cli/report/RunRecord.h"

namespace twintrue::cli {

// Draws the page of a run. The lens file of the report is read again, as the run read it; `frame` is its
// frame. Runs on `threads` threads (0: default_thread_count()). Throws Failure and std::bad_alloc.
std::string page_of_run(const RunReport& report, RunRecord&& record, RunInputs&& inputs, const Frame& frame,
                        int threads);

}  // namespace twintrue::cli

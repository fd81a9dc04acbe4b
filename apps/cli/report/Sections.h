#pragma once

// The parts of a page, in its order. Each adds a section; some add none for a run that did not get that far.

#include "apps/cli/report/Markup.h"
#include "apps/cli/report/ReportPage.h"

namespace twintrue::cli {

void add_result(Markup& page, const PageFacts& facts);
void add_views(Markup& page, const PageFacts& facts);
void add_maps(Markup& page, const PageFacts& facts);
void add_histogram(Markup& page, const PageFacts& facts);
void add_matches(Markup& page, const PageFacts& facts);
void add_counts(Markup& page, const PageFacts& facts);
void add_search(Markup& page, const PageFacts& facts);
void add_run(Markup& page, const PageFacts& facts);

// A style sheet for all of them.
extern const char* const kPageStyle;

}  // namespace twintrue::cli

#pragma once

#include "apps/cli/LensCheck.h"
#include "apps/cli/SettingsSource.h"

namespace twintrue::cli {

// How far a look at the stages goes.
enum class Reach { kDetection, kMatching, kSearch };

// Throws Failure (settings unusable), with all that check_settings() has to say, if the stages up to that one
// can't be set up or would end the process. Settings that merely find nothing pass: what they make of a frame
// can be looked at.
void require_stages(const SettingsSource& source, const LensFacts& lens, Reach reach);

// The same for the search alone.
void require_search(const SettingsSource& source, const LensFacts& lens);

}  // namespace twintrue::cli

#pragma once

namespace twintrue::cli {

// The whole work of the picture helper, on the descriptors that Exchange.h tells of:
//
//   helper read READER PATH         fills the exchange with the first picture of the file
//   helper write                    writes the floats of the exchange to kOutputDescriptor, as a TIFF
//
// The result is the process's exit code: 0 if the exchange tells the rest, be it a problem.
int picture_helper(int argc, char** argv);

}  // namespace twintrue::cli

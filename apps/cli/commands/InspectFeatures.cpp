#include "apps/cli/commands/InspectFeatures.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/commands/CsvFloat.h"
#include "apps/cli/commands/InspectOutput.h"
#include "features/FeatureFrame.h"

namespace twintrue::cli {
namespace {

void append_row(std::string& csv, std::int32_t slot, const fpu::KeyPointRecord& record,
                const cve::XMat_<unsigned char>& descriptors) {
  fmt::format_to(std::back_inserter(csv), "{},{},{},{},{},{},{},{},", record.cell, slot, record.index,
                 csv_float(record.x), csv_float(record.y), record.score, static_cast<int>(record.octave),
                 static_cast<int>(record.refined));
  if (!descriptors.empty()) {
    const unsigned char* const bytes = descriptors.row(record.index);
    for (std::int32_t i = 0; i < descriptors.cols; ++i) {
      fmt::format_to(std::back_inserter(csv), "{:02x}", bytes[i]);
    }
  }
  csv += '\n';
}

std::string features_csv(const fpu::FeatureFrame& frame) {
  const fpu::KeyPointStore& store = frame.store;
  const std::int32_t cells = store.grid->numCells();
  std::string csv =
      fmt::format("# count={} cells={} capacity={}\n", store.count, cells, store.capacityPerCell);
  csv += "cell,slot,index,x,y,score,octave,refined,descriptor\n";
  for (std::int32_t cell = 0; cell < cells; ++cell) {
    const auto first = static_cast<std::size_t>(cell) * static_cast<std::size_t>(store.capacityPerCell);
    for (std::int32_t slot = 0; slot < store.cellCounts[static_cast<std::size_t>(cell)]; ++slot) {
      append_row(csv, slot, store.records[first + static_cast<std::size_t>(slot)], frame.descriptors);
    }
  }
  return csv;
}

}  // namespace

void inspect_features(const RunArguments& arguments) {
  DocumentTarget target(arguments.out, inputs_of(arguments));
  const auto run = open_frame_run(arguments, Reach::kDetection);
  fpu::FeatureFrame frame(*run->unit);
  {
    const MessagesToErrors redirected;
    detect_half(run->half(arguments.side), frame);
  }
  target.write(features_csv(frame));
}

}  // namespace twintrue::cli

// Whole calibrations through the C interface. Items are pixels of the frame.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <omp.h>
#include <unistd.h>

#include <cstdio>

#include "BenchInputs.h"

namespace twintrue::bench {
namespace {

// Sends what the library says to nowhere for as long as it lives.
class Silence {
 public:
  Silence() : kept_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }

 private:
  int kept_;
};

void WholeCalib(benchmark::State& state) {
  const BenchFrame& frame = BenchFrame::of_width(static_cast<int>(state.range(0)));
  const int before = omp_get_max_threads();
  omp_set_num_threads(static_cast<int>(state.range(1)));
  const CalibImage image = frame.picture().image();
  CalibResult result{};
  std::int32_t status = 0;
  {
    const Silence silence;
    for (auto _ : state) {
      status = calib(&image, frame.lens_path().c_str(), frame.params_path().c_str(), "", 0, &result);
    }
  }
  omp_set_num_threads(before);
  if (status != TWINTRUE_CALIBRATED) state.SkipWithError("not calibrated");
  state.SetItemsProcessed(state.iterations() * image.width * image.height);
}

BENCHMARK(WholeCalib)
    ->ArgNames({"width", "threads"})
    ->ArgsProduct({{2048, 4096, 8192}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace twintrue::bench

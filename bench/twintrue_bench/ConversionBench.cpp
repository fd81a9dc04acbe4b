// Frame conversion: a power a pixel against table and series. Items are pixels.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "BenchInputs.h"
#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/TwinTrue/LuminanceKernel.h"

namespace twintrue::bench {
namespace {

void ConversionPlain(benchmark::State& state) {
  const Picture& picture = BenchFrame::of_width(static_cast<int>(state.range(0))).picture();
  std::vector<float> target(picture.bytes.size() / 3);
  for (auto _ : state) {
    const std::uint8_t* p = picture.bytes.data();
    for (float& value : target) {
      value = linear_luminance(p[0], p[1], p[2]);
      p += 3;
    }
    benchmark::DoNotOptimize(target.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(target.size()));
}

void ConversionFast(benchmark::State& state) {
  const Picture& picture = BenchFrame::of_width(static_cast<int>(state.range(0))).picture();
  const auto set = static_cast<twintrue::InstructionSet>(state.range(1));
  const LuminanceTable table;
  const LuminanceFn kernel = luminance_kernel(set);
  std::vector<float> target(picture.bytes.size() / 3);
  for (auto _ : state) {
    for (std::uint32_t y = 0; y < picture.height; ++y) {
      const std::size_t at = std::size_t{y} * picture.width;
      kernel(table, &picture.bytes[3 * at], picture.width, false, &target[at]);
    }
    benchmark::DoNotOptimize(target.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(target.size()));
}

// Every colour that there is: fails if one comes out another way than the plain form gives it.
void ConversionOfEveryColour(benchmark::State& state) {
  constexpr std::size_t kColours = std::size_t{1} << 24;
  std::vector<std::uint8_t> colours(3 * kColours);
  for (std::size_t i = 0; i < kColours; ++i) {
    for (std::size_t k = 0; k < 3; ++k) colours[3 * i + k] = static_cast<std::uint8_t>(i >> (8 * k));
  }
  const LuminanceTable table;
  const LuminanceFn kernel = luminance_kernel(static_cast<twintrue::InstructionSet>(state.range(0)));
  std::vector<float> target(kColours);
  for (auto _ : state) kernel(table, colours.data(), kColours, false, target.data());
  std::size_t different = 0;
  for (std::size_t i = 0; i < kColours; ++i) {
    const std::uint8_t* p = &colours[3 * i];
    different += target[i] != linear_luminance(p[0], p[1], p[2]);
  }
  if (different != 0) state.SkipWithError("colours differ from the plain form");
  state.counters["different"] = static_cast<double>(different);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kColours));
}

void every_width_and_set(benchmark::internal::Benchmark* bench) {
  for (int width : {2048, 4096, 8192}) {
    for (twintrue::InstructionSet set : twintrue::supported_instruction_sets())
      bench->Args({width, static_cast<int>(set)});
  }
}

void every_set(benchmark::internal::Benchmark* bench) {
  for (twintrue::InstructionSet set : twintrue::supported_instruction_sets())
    bench->Arg(static_cast<int>(set));
}

BENCHMARK(ConversionPlain)->ArgName("width")->Arg(2048)->Arg(4096)->Arg(8192)->Unit(benchmark::kMillisecond);
BENCHMARK(ConversionFast)
    ->ArgNames({"width", "set"})
    ->Apply(every_width_and_set)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ConversionOfEveryColour)
    ->ArgName("set")
    ->Apply(every_set)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace twintrue::bench

// Times of `twintrue view` without its files: a frame of bytes to what a viewer sees. Items are pixels drawn.
//
// "remap" is OpenCV's with bicubic interpolation, on the maps of the same view and the same threads: once on
// the bytes as they are, which is the least that it can do, and once on the pixels of four floats in
// proportion to light that a view in linear light would give it. It has no part in making the maps.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/ThreadTeam.h"
#include "render/StereoRender.h"
#ifdef TWINTRUE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace twintrue::render {
namespace {

constexpr double kDegree = 3.141592653589793 / 180;

// A rig of that frame width whose eyes have some distortion and stand crooked.
RigModel rig_of_width(int width) {
  RigModel rig;
  for (EyeModel* const eye : {&rig.left, &rig.right}) {
    eye->distortion.kind = 1;
    eye->distortion.coeff = {0, 2, 0, -1, 0, 0};
    distortion_build_table(eye->distortion);
    eye->view_width = width / 2;
    eye->view_height = width / 2;
    eye->scale = 0.24 * width;
    eye->center_x = width * (eye == &rig.right ? 0.25 : 0.75);
    eye->center_y = width * 0.25;
    eye->valid_x_begin = eye == &rig.right ? 0 : width / 2;
    eye->valid_x_end = eye->valid_x_begin + width / 2;
    eye->roll = eye == &rig.right ? 0.3 * kDegree : 0.0;
    eye_update_rotation(*eye);
  }
  return rig;
}

std::vector<std::uint8_t> bytes_of_width(int width) {
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(width / 2) * 3);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 2654435761U >> 13);
  return bytes;
}

struct Inputs {
  explicit Inputs(int width) : bytes(bytes_of_width(width)), rig(rig_of_width(width)) {
    frame = {width, width / 2, SampleType::kByte, Light::kEncoded, bytes.data()};
  }
  std::vector<std::uint8_t> bytes;
  RigModel rig;
  FramePixels frame;
};

View view_of(Projection projection, int side) {
  View view{projection, side, side};
  view.fov = (projection == Projection::kFisheye ? 180 : 90) * kDegree;
  return view;
}

PictureRoom room_in(std::vector<std::byte>& samples, const Window& size) {
  PictureRoom room{size.width, size.height};
  room.row_bytes = static_cast<std::size_t>(size.width) * 3;
  samples.resize(room.row_bytes * static_cast<std::size_t>(size.height));
  room.samples = samples.data();
  return room;
}

// All of it: the frame made ready, the maps, the sampling, the bytes.
template <Projection kProjection, Light kSampling>
void Whole(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const Inputs inputs(width);
  const ThreadTeam team(static_cast<int>(state.range(1)));
  const View view = view_of(kProjection, width / 2);
  std::vector<std::byte> samples;
  const PictureRoom room = room_in(samples, layout_window(Layout::kSideBySide, whole_window(view)));
  for (auto _ : state) {
    const StereoRender render(inputs.frame, inputs.rig, view, kSampling);
    render.draw(Layout::kSideBySide, whole_window(view), room);
  }
  state.SetItemsProcessed(state.iterations() * room.width * room.height);
}

// The part that OpenCV's function does: both eyes, from what was made ready to bytes.
template <Projection kProjection, Light kSampling>
void Draw(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const Inputs inputs(width);
  const ThreadTeam team(static_cast<int>(state.range(1)));
  const View view = view_of(kProjection, width / 2);
  std::vector<std::byte> samples;
  const PictureRoom room = room_in(samples, layout_window(Layout::kSideBySide, whole_window(view)));
  const StereoRender render(inputs.frame, inputs.rig, view, kSampling);
  for (auto _ : state) render.draw(Layout::kSideBySide, whole_window(view), room);
  state.SetItemsProcessed(state.iterations() * room.width * room.height);
}

#ifdef TWINTRUE_BENCH_OPENCV
void fill_maps(const EyeModel& eye, const View& view, cv::Mat& x, cv::Mat& y) {
  const ViewMap map(eye, view);
  x.create(view.height, view.width, CV_32F);
  y.create(view.height, view.width, CV_32F);
  std::vector<double> row_x(static_cast<std::size_t>(view.width)), row_y(row_x.size());
  for (int row = 0; row < view.height; ++row) {
    map.row(row, 0, view.width, row_x.data(), row_y.data());
    for (int column = 0; column < view.width; ++column) {
      const auto i = static_cast<std::size_t>(column);
      const bool seen = !std::isnan(row_x[i]);
      x.at<float>(row, column) = seen ? static_cast<float>(row_x[i]) : -10.0f;
      y.at<float>(row, column) = seen ? static_cast<float>(row_y[i]) : -10.0f;
    }
  }
}

template <Projection kProjection, int kType>
void Remap(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const Inputs inputs(width);
  cv::setNumThreads(static_cast<int>(state.range(1)));
  const View view = view_of(kProjection, width / 2);
  const cv::Mat bytes(width / 2, width, CV_8UC3, const_cast<std::uint8_t*>(inputs.bytes.data()));
  cv::Mat source = bytes;
  if (kType == CV_32FC4) {
    cv::Mat four;
    cv::cvtColor(bytes, four, cv::COLOR_RGB2RGBA);
    four.convertTo(source, CV_32F, 1.0 / 255);
  }
  cv::Mat maps[2][2];
  fill_maps(inputs.rig.left, view, maps[0][0], maps[0][1]);
  fill_maps(inputs.rig.right, view, maps[1][0], maps[1][1]);
  cv::Mat drawn[2];
  for (auto _ : state) {
    for (int eye = 0; eye < 2; ++eye) {
      cv::remap(source, drawn[eye], maps[eye][0], maps[eye][1], cv::INTER_CUBIC, cv::BORDER_CONSTANT);
    }
  }
  state.SetItemsProcessed(state.iterations() * 2 * view.width * view.height);
}
#endif

void sizes(benchmark::internal::Benchmark* bench) {
  for (const int width : {2048, 8192}) {
    for (const int threads : {1, 2}) bench->Args({width, threads});
  }
  bench->Unit(benchmark::kMillisecond)->UseRealTime();
}

#define TWINTRUE_VIEW_BENCH(projection)                                             \
  BENCHMARK_TEMPLATE(Whole, Projection::projection, Light::kLinear)->Apply(sizes);  \
  BENCHMARK_TEMPLATE(Whole, Projection::projection, Light::kEncoded)->Apply(sizes); \
  BENCHMARK_TEMPLATE(Draw, Projection::projection, Light::kLinear)->Apply(sizes)

TWINTRUE_VIEW_BENCH(kHalfEquirect);
TWINTRUE_VIEW_BENCH(kRectilinear);
TWINTRUE_VIEW_BENCH(kFisheye);
#ifdef TWINTRUE_BENCH_OPENCV
BENCHMARK_TEMPLATE(Remap, Projection::kHalfEquirect, CV_8UC3)->Apply(sizes);
BENCHMARK_TEMPLATE(Remap, Projection::kHalfEquirect, CV_32FC4)->Apply(sizes);
BENCHMARK_TEMPLATE(Remap, Projection::kRectilinear, CV_8UC3)->Apply(sizes);
BENCHMARK_TEMPLATE(Remap, Projection::kFisheye, CV_8UC3)->Apply(sizes);
#endif

}  // namespace
}  // namespace twintrue::render

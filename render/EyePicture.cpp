#include "render/EyePicture.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/ParallelEach.h"
#include "render/ToneCode.h"

namespace twintrue::render {
namespace {

constexpr double kHalfPi = 1.5707963267948966;
constexpr int kLargestReduction = 64;
constexpr std::size_t kNumbers = 4;  // of a pixel

bool is_inside(const EyeModel& eye, int x, int y) {
  double ray[3];
  return eye_image_to_ray(eye, &ray[0], &ray[1], &ray[2], x, y);
}

// The last column between `from`, which is inside, and `to` that is inside, for a circle without dents.
int last_inside(const EyeModel& eye, int y, int from, int to) {
  if (is_inside(eye, to, y)) return to;
  while (std::abs(to - from) > 1) {
    const int middle = from + (to - from) / 2;
    (is_inside(eye, middle, y) ? from : to) = middle;
  }
  return from;
}

// Columns of a frame's row that lie inside. All but the columns `bounds` is outside.
Span circle_span(const EyeModel& eye, int y, const Span& bounds) {
  if (bounds.begin >= bounds.end) return {};
  const double middle = eye.center_x + eye.offset_x;
  const int last = bounds.end - 1;
  int start = bounds.begin;
  if (middle >= last) {
    start = last;
  } else if (middle > start) {
    start = static_cast<int>(middle);
  }
  if (!is_inside(eye, start, y)) return {};
  return {last_inside(eye, y, start, bounds.begin), last_inside(eye, y, start, last) + 1};
}

Span common(const Span& a, const Span& b) {
  const Span both{std::max(a.begin, b.begin), std::min(a.end, b.end)};
  return both.begin < both.end ? both : Span{};
}

float between(Light from, Light to, float value) {
  if (from == to) return value;
  return to == Light::kLinear ? light_of_display(value) : display_of_light(value);
}

float unit_of(std::uint16_t sample) { return static_cast<float>(sample) / 65535.0f; }
// What is no number would spread to all that is sampled near it.
float unit_of(float sample) { return std::isfinite(sample) ? sample : 0.0f; }

std::uint16_t word_of(float number) { return static_cast<std::uint16_t>(number * 65535.0f + 0.5f); }

// Mean of what `number` makes of n x n samples of one channel.
template <typename Sample, typename Number>
float mean_of(const Sample* first, std::size_t n, std::size_t frame_row, const Number& number) {
  float sum = 0.0f;
  for (std::size_t i = 0; i < n * n; ++i) sum += number(first[i / n * frame_row + i % n * 3]);
  return sum / static_cast<float>(n * n);
}

}  // namespace

// Gives every pixel inside the three numbers that `convert` makes of the samples from a place on.
template <typename Sample, typename Number, typename Convert>
void EyePicture::fill(const FramePixels& frame, Number* numbers, const Convert& convert) const {
  const auto* const samples = static_cast<const Sample*>(frame.samples);
  const auto n = static_cast<std::size_t>(reduction_);
  const std::size_t frame_row = static_cast<std::size_t>(frame.width) * 3;
  parallel_rows(0, height_, [&](int y) {
    const auto row = static_cast<std::size_t>(y);
    const Span& span = inside(y);
    for (int x = span.begin; x < span.end; ++x) {
      const auto column = static_cast<std::size_t>(x);
      const Sample* const first =
          samples + row * n * frame_row + (static_cast<std::size_t>(left_) + column * n) * 3;
      Number* const out = numbers + (row * static_cast<std::size_t>(width_) + column) * kNumbers;
      for (std::size_t channel = 0; channel < 3; ++channel) out[channel] = convert(first + channel);
      out[3] = 0;
    }
  });
}

void EyePicture::keep_words(const FramePixels& frame, std::uint16_t* numbers) const {
  std::array<std::uint16_t, 256> words;
  std::array<float, 256> lights;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const float unit = static_cast<float>(i) / 255.0f;
    words[i] = word_of(between(frame.light, light_, unit));
    lights[i] = between(frame.light, Light::kLinear, unit);
  }
  const auto n = static_cast<std::size_t>(reduction_);
  const std::size_t frame_row = static_cast<std::size_t>(frame.width) * 3;
  const auto light = [&lights](std::uint8_t sample) { return lights[sample]; };
  if (n == 1) {
    fill<std::uint8_t>(frame, numbers, [&words](const std::uint8_t* at) { return words[*at]; });
  } else {
    fill<std::uint8_t>(frame, numbers, [&](const std::uint8_t* at) {
      return word_of(between(Light::kLinear, light_, mean_of(at, n, frame_row, light)));
    });
  }
}

template <typename Sample>
void EyePicture::keep_floats(const FramePixels& frame, float* numbers) const {
  const auto n = static_cast<std::size_t>(reduction_);
  const std::size_t frame_row = static_cast<std::size_t>(frame.width) * 3;
  const auto light = [&](Sample sample) { return between(frame.light, Light::kLinear, unit_of(sample)); };
  if (n == 1) {
    fill<Sample>(frame, numbers,
                 [&](const Sample* at) { return between(frame.light, light_, unit_of(*at)); });
  } else {
    fill<Sample>(frame, numbers, [&](const Sample* at) {
      return between(Light::kLinear, light_, mean_of(at, n, frame_row, light));
    });
  }
}

EyePicture::EyePicture(const FramePixels& frame, const EyeModel& eye, Light light, int reduction)
    : light_(light), reduction_(reduction) {
  left_ = std::clamp(eye.valid_x_begin, 0, frame.width);
  width_ = (std::clamp(eye.valid_x_end, left_, frame.width) - left_) / reduction;
  height_ = std::clamp(eye.view_height, 0, frame.height) / reduction;
  find_spans(frame, eye);

  const std::size_t numbers = static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * kNumbers;
  if (frame.type == SampleType::kByte) {
    words_ = std::make_unique_for_overwrite<std::uint16_t[]>(numbers);
    keep_words(frame, words_.get());
    return;
  }
  floats_ = std::make_unique_for_overwrite<float[]>(numbers);
  if (frame.type == SampleType::kWord) {
    keep_floats<std::uint16_t>(frame, floats_.get());
  } else {
    keep_floats<float>(frame, floats_.get());
  }
}

void EyePicture::find_spans(const FramePixels& frame, const EyeModel& eye) {
  const int rows = height_ * reduction_;
  const Span bounds{left_, left_ + width_ * reduction_};
  std::vector<Span> of_frame(static_cast<std::size_t>(std::min(rows, frame.height)));
  parallel_rows(0, rows, [&](int y) { of_frame[static_cast<std::size_t>(y)] = circle_span(eye, y, bounds); });

  inside_.resize(static_cast<std::size_t>(height_));
  for (int row = 0; row < height_; ++row) {
    Span span = bounds;
    for (int i = 0; i < reduction_; ++i) {
      span = common(span, of_frame[static_cast<std::size_t>(row * reduction_ + i)]);
    }
    const Span reduced{(span.begin - left_ + reduction_ - 1) / reduction_, (span.end - left_) / reduction_};
    if (span.end > span.begin && reduced.begin < reduced.end)
      inside_[static_cast<std::size_t>(row)] = reduced;
  }
  whole_.resize(inside_.size());
  for (int row = 1; row + 2 < height_; ++row) {
    const Span all = common(common(inside(row - 1), inside(row)), common(inside(row + 1), inside(row + 2)));
    if (all.end - all.begin > 3) whole_[static_cast<std::size_t>(row)] = {all.begin + 1, all.end - 2};
  }
}

int reduction_for(const EyeModel& eye, double view_density) {
  const double ratio = std::fabs(eye.scale) / kHalfPi / view_density;
  // The comparison also takes what is no number.
  if (!(ratio > 1.0)) return 1;
  return static_cast<int>(std::min<double>(std::floor(ratio + 0.5), kLargestReduction));
}

}  // namespace twintrue::render

#include "render/ToneCode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace twintrue::render {
namespace {

constexpr float kLargestByte = 255.0f;
constexpr float kLargestWord = 65535.0f;

// 0 to `largest` to the nearest. The first comparison also takes what is no number.
std::uint32_t whole(float value, float largest) {
  if (!(value > 0.0f)) return 0;
  return static_cast<std::uint32_t>(std::min(value, 1.0f) * largest + 0.5f);
}

template <typename T>
void put(std::byte* place, T value) {
  std::memcpy(place, &value, sizeof value);
}

}  // namespace

float light_of_display(float value) {
  const float size = std::fabs(value);
  const float light = size <= 0.04045f ? size / 12.92f : std::pow((size + 0.055f) / 1.055f, 2.4f);
  return std::copysign(light, value);
}

float display_of_light(float light) {
  const float size = std::fabs(light);
  const float value = size <= 0.0031308f ? size * 12.92f : 1.055f * std::pow(size, 1.0f / 2.4f) - 0.055f;
  return std::copysign(value, light);
}

ToneCode::ToneCode(Light from, SampleType type, Light to) : from_(from), type_(type), to_(to) {
  if (type_ != SampleType::kByte) return;
  bytes_.resize(static_cast<std::size_t>(kLargestWord) + 1);
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    bytes_[i] = static_cast<std::uint8_t>(whole(coded(static_cast<float>(i) / kLargestWord), kLargestByte));
  }
}

float ToneCode::coded(float value) const {
  if (from_ == to_) return value;
  return to_ == Light::kEncoded ? display_of_light(value) : light_of_display(value);
}

void ToneCode::write_bytes(const float* pixels, std::size_t count, std::uint8_t* bytes) const {
  // Some at a time and in two loops, the first of which the compiler turns into vectors.
  constexpr std::size_t kSome = 64;
  std::array<std::int32_t, 4 * kSome> steps;
  for (std::size_t begin = 0; begin < count; begin += kSome) {
    const std::size_t some = std::min(kSome, count - begin);
    for (std::size_t i = 0; i < 4 * some; ++i) {
      const float value = pixels[4 * begin + i];
      const float positive = value > 0.0f ? value : 0.0f;  // 0 also for what is no number
      steps[i] = static_cast<std::int32_t>((positive < 1.0f ? positive : 1.0f) * kLargestWord + 0.5f);
    }
    for (std::size_t i = 0; i < some; ++i) {
      for (std::size_t channel = 0; channel < 3; ++channel) {
        *bytes++ = bytes_[static_cast<std::size_t>(steps[4 * i + channel])];
      }
    }
  }
}

void ToneCode::write(const float* pixels, std::size_t count, std::byte* samples) const {
  if (!bytes_.empty()) {
    write_bytes(pixels, count, reinterpret_cast<std::uint8_t*>(samples));
    return;
  }
  for (std::size_t pixel = 0; pixel < count; ++pixel, pixels += 4) {
    for (std::size_t channel = 0; channel < 3; ++channel, samples += bytes_of(type_)) {
      const float value = std::isnan(pixels[channel]) ? 0.0f : coded(pixels[channel]);
      if (type_ == SampleType::kWord) {
        put(samples, static_cast<std::uint16_t>(whole(value, kLargestWord)));
      } else {
        put(samples, value);
      }
    }
  }
}

}  // namespace twintrue::render

#pragma once

// What the program and its picture helper say to each other: one file in memory that both hold open. It
// begins with a header of kExchangeHeaderBytes; the samples of one picture follow, rows from top to bottom
// without gaps. The program believes nothing that stands there before it has checked it: whoever wrote the
// picture may have taken over the helper.

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace twintrue::cli {

// The helper's descriptors, besides the standard ones.
inline constexpr int kExchangeDescriptor = 3;
inline constexpr int kOutputDescriptor = 4;  // the file that is written

enum class ExchangeState : std::uint32_t {
  kSilent = 0,  // what a helper that could not even start leaves
  kStarted,
  kDone,
  kProblem,   // told in found, expected and remedy
  kNoMemory,  // the picture takes more than the helper has
};

struct ExchangeHeader {
  ExchangeState state = ExchangeState::kSilent;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::uint32_t pictures = 0;  // in the file that was read
  std::uint32_t channels = 3;
  std::uint32_t sample_bytes = 1;  // the number of a render::SampleType
  std::uint32_t linear = 0;        // 1: the samples are in proportion to light
  // Ended by a zero, or full.
  std::array<char, 1024> found{};
  std::array<char, 512> expected{};
  std::array<char, 512> remedy{};
};
static_assert(std::is_trivially_copyable_v<ExchangeHeader>);

inline constexpr std::size_t kExchangeHeaderBytes = 4096;  // a page, so that the samples begin on one
static_assert(sizeof(ExchangeHeader) <= kExchangeHeaderBytes);

}  // namespace twintrue::cli

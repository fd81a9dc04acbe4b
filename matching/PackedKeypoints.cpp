#include "matching/PackedKeypoints.h"

#include <algorithm>
#include <cstring>

#include "matching/Matching.h"
#include "matching/Rounding.h"

namespace fpu {
namespace {

constexpr std::int32_t kWordBits = 64;

}  // namespace

DescriptorWords::DescriptorWords(std::int32_t bytes, std::int32_t split_bit, std::int32_t weight)
    : width(std::max(bytes, 0)),
      split(weight == 0 ? -1 : split_bit),
      fold(static_cast<std::uint32_t>(weight)) {
  const std::int32_t whole = width / 8;
  std::int32_t folded_words = 0;
  std::int32_t plain_words = 0;
  for (std::int32_t start = 0; start < whole * kWordBits; start += kWordBits) {
    if (start <= split) ++folded_words;
    if (start + kWordBits > split) ++plain_words;
  }
  folded = static_cast<std::size_t>(2 * folded_words);
  plain = static_cast<std::size_t>(2 * plain_words + width % 8);
}

void DescriptorWords::lay_out(const unsigned char* row, std::uint32_t* out, std::size_t stride) const {
  std::uint32_t* once = out + folded * stride;
  const auto put = [stride](std::uint32_t*& at, std::uint64_t word) {
    at[0] = static_cast<std::uint32_t>(word);
    at[stride] = static_cast<std::uint32_t>(word >> 32);
    at += 2 * stride;
  };
  const std::int32_t whole = width / 8;
  for (std::int32_t i = 0; i < whole; ++i) {
    std::uint64_t word = 0;
    std::memcpy(&word, row + std::ptrdiff_t{i} * 8, sizeof(word));
    const std::int32_t start = i * kWordBits;
    const std::int32_t inside = std::clamp(split - start, 0, kWordBits);
    // A word that begins at the very split counts both ways as a whole.
    if (start <= split) put(out, inside == 0 ? word : word << (kWordBits - inside));
    if (start + kWordBits > split) put(once, word >> inside);
  }
  for (std::int32_t i = 0; i < width % 8; ++i, once += stride) {
    std::memcpy(once, row + std::ptrdiff_t{whole} * 8 + std::ptrdiff_t{i} * 4, sizeof(*once));
  }
}

PackedKeypoints::PackedKeypoints(const FeatureFrame& frame, const DescriptorWords& order)
    : words_per_row(order.count()) {
  const KeyPointStore& store = frame.store;
  const std::int32_t cells = store.grid->numCells();
  const auto live = [&store](std::int32_t c) {
    return std::clamp(store.cellCounts[static_cast<std::size_t>(c)], 0, store.capacityPerCell);
  };
  cell_begin.reserve(static_cast<std::size_t>(cells) + 1);
  cell_begin.push_back(0);
  for (std::int32_t c = 0; c < cells; ++c) cell_begin.push_back(cell_begin.back() + live(c));

  const auto count = static_cast<std::size_t>(cell_begin.back());
  for (auto* column : {&cell, &score, &octave, &index}) column->reserve(count);
  const std::size_t blocks = (count + kLanes - 1) / kLanes;
  x.resize(blocks);
  y.resize(blocks);
  words.resize(blocks * words_per_row);
  const cve::XMat_<unsigned char>& rows = frame.descriptors;
  std::vector<unsigned char> row(descriptor_span(order.width));
  const std::size_t stride = static_cast<std::size_t>(rows.stride);
  const std::size_t end =
      rows.rows < 1 ? 0
                    : static_cast<std::size_t>(rows.rows - 1) * stride + static_cast<std::size_t>(rows.cols);

  std::size_t place = 0;
  for (std::int32_t c = 0; c < cells; ++c) {
    const KeyPointRecord* const first =
        store.records.data() + static_cast<std::size_t>(c) * static_cast<std::size_t>(store.capacityPerCell);
    for (const KeyPointRecord* keypoint = first; keypoint != first + live(c); ++keypoint, ++place) {
      const std::size_t block = place / kLanes;
      const std::size_t lane_of = place % kLanes;
      cell.push_back(c);
      score.push_back(keypoint->score);
      octave.push_back(keypoint->octave);
      index.push_back(keypoint->index);
      x[block].v[lane_of] = round_coordinate(keypoint->x);
      y[block].v[lane_of] = round_coordinate(keypoint->y);
      if (words_per_row == 0) continue;
      // The odd words at the end of a row reach into the rows behind it; behind the last one they are zero.
      const std::size_t start = static_cast<std::size_t>(keypoint->index) * stride;
      const std::size_t readable = std::min(row.size(), end - start);
      std::memcpy(row.data(), rows.row(keypoint->index), readable);
      std::fill(row.begin() + static_cast<std::ptrdiff_t>(readable), row.end(),
                static_cast<unsigned char>(0));
      order.lay_out(row.data(), words[block * words_per_row].v.data() + lane_of, kLanes);
    }
  }
}

}  // namespace fpu

#pragma once

// A set of places 0 to size - 1 that tells quickly which member comes next.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace twintrue {

class PlaceSet {
 public:
  // Empty, for places below `size`.
  explicit PlaceSet(std::size_t size) : size_(size) {
    do {
      size = (size + kBits - 1) / kBits;
      levels_.emplace_back(size);
    } while (size > 1);
  }

  void insert(std::size_t place) {
    for (auto& level : levels_) {
      level[place / kBits] |= std::uint64_t{1} << (place % kBits);
      place /= kBits;
    }
  }

  bool contains(std::size_t place) const { return ((levels_[0][place / kBits] >> (place % kBits)) & 1) != 0; }

  // The first member at or behind that place; the size if there is none.
  std::size_t next(std::size_t place) const {
    std::size_t level = 0;
    // Up until a word has a member left, one place further on at each step.
    for (;; ++level, place = place / kBits + 1) {
      if (level == levels_.size() || place / kBits >= levels_[level].size()) return size_;
      const std::uint64_t rest = levels_[level][place / kBits] >> (place % kBits);
      if (rest == 0) continue;
      place += static_cast<std::size_t>(std::countr_zero(rest));
      break;
    }
    while (level-- > 0) {
      place = place * kBits + static_cast<std::size_t>(std::countr_zero(levels_[level][place]));
    }
    return place;
  }

 private:
  static constexpr std::size_t kBits = 64;

  std::size_t size_;
  // A bit for each place, then a bit for each word of the level before that has a member.
  std::vector<std::vector<std::uint64_t>> levels_;
};

}  // namespace twintrue

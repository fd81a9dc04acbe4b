#pragma once

// The one image and matrix header of the system.
//
// cve::XMat names pixels that somebody else keeps alive; cve::XMat_<T> shares in their ownership. Headers
// are small and copied freely: no copy moves a pixel. A view of part of an image is one more header over the
// same memory, with the stride of the image that it looks into, so rows of a view aren't contiguous and all
// code that walks an image goes by `stride`.
//
// Thread-safety: the reference count is atomic, pixels aren't protected.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace cve {

// Element type codes. 1 and 2 are not used.
enum ElementType : std::int32_t {
  kUint8 = 0,
  kInt16 = 3,
  kInt32 = 4,
  kFloat32 = 5,
  kFloat64 = 6,
};

template <typename T>
struct ElementTypeOf;
template <>
struct ElementTypeOf<unsigned char> {
  static constexpr std::int32_t value = kUint8;
};
template <>
struct ElementTypeOf<short> {
  static constexpr std::int32_t value = kInt16;
};
template <>
struct ElementTypeOf<int> {
  static constexpr std::int32_t value = kInt32;
};
template <>
struct ElementTypeOf<float> {
  static constexpr std::int32_t value = kFloat32;
};
template <>
struct ElementTypeOf<double> {
  static constexpr std::int32_t value = kFloat64;
};

// Width and height in elements.
struct Size {
  std::int32_t cols = 0;
  std::int32_t rows = 0;
};

// A header that owns nothing: it must not outlive the memory that it names. An image is empty when `data` is
// null, whatever its size says.
class XMat {
 public:
  XMat() = default;
  XMat(std::int32_t rows_, std::int32_t cols_, std::int32_t stride_, void* data_, std::int32_t type)
      : cols(cols_), rows(rows_), stride(stride_), data(data_), type_code(type) {}
  XMat(const XMat&) = default;
  XMat(XMat&&) = default;
  XMat& operator=(const XMat&) = default;
  XMat& operator=(XMat&&) = default;
  virtual ~XMat() = default;

  // Element type code.
  virtual std::int32_t type() const { return type_code; }

  bool empty() const { return data == nullptr; }

  std::int32_t cols = 0;    // width in elements
  std::int32_t rows = 0;    // height in elements
  std::int32_t stride = 0;  // bytes from the start of one row to the next
  void* data = nullptr;     // element at row 0, column 0
  std::int32_t type_code = 0;
};

// The typed, owning header. `owner` is null in a header that shares nothing.
template <typename T>
class XMat_ : public XMat {
 public:
  static constexpr std::int32_t kType = ElementTypeOf<T>::value;

  XMat_() { type_code = kType; }
  XMat_(const XMat_&) = default;
  XMat_& operator=(const XMat_&) = default;
  XMat_(XMat_&& other) noexcept : XMat(other), owner(std::move(other.owner)) {}
  XMat_& operator=(XMat_&& other) noexcept {
    XMat::operator=(other);
    owner = std::move(other.owner);
    return *this;
  }
  ~XMat_() override = default;

  std::int32_t type() const override { return kType; }

  // Makes a new image of zeros; the memory held until then loses one reference. `stride_bytes` is the bytes
  // of a row, packed rows if negative. Always true; throws std::bad_alloc where memory is short or the byte
  // count doesn't fit 32 bits.
  bool create(std::int32_t rows_, std::int32_t cols_, std::int32_t stride_bytes = -1) {
    const std::int64_t step =
        stride_bytes < 0 ? std::int64_t{cols_} * static_cast<std::int64_t>(sizeof(T)) : stride_bytes;
    constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
    if (rows_ < 0 || cols_ < 0 || step > kMax || step * rows_ > kMax) throw std::bad_alloc();
    auto fresh = std::make_shared<std::vector<T>>(static_cast<std::size_t>(step * rows_) / sizeof(T));
    type_code = kType;
    cols = cols_;
    rows = rows_;
    stride = static_cast<std::int32_t>(step);
    owner = std::move(fresh);
    data = owner->data();
    return true;
  }

  // Elements from one row to the next.
  std::ptrdiff_t pitch() const {
    return static_cast<std::ptrdiff_t>(static_cast<std::uint64_t>(static_cast<std::int64_t>(stride)) /
                                       sizeof(T));
  }
  T* row(std::ptrdiff_t y) { return static_cast<T*>(data) + y * pitch(); }
  const T* row(std::ptrdiff_t y) const { return static_cast<const T*>(data) + y * pitch(); }
  T& at(std::ptrdiff_t y, std::ptrdiff_t x) { return row(y)[x]; }
  const T& at(std::ptrdiff_t y, std::ptrdiff_t x) const { return row(y)[x]; }

  // Header of the part that starts at column x, row y: shared memory, this image's stride. Not checked: the
  // part must lie in memory that the owner holds.
  XMat_ view(std::int32_t x, std::int32_t y, std::int32_t cols_, std::int32_t rows_) const {
    XMat_ part = *this;
    part.cols = cols_;
    part.rows = rows_;
    part.data = const_cast<T*>(row(y)) + x;
    return part;
  }

  std::shared_ptr<std::vector<T>> owner;
};

// An image of zeros with `margin` addressable pixels round it: rows -margin to rows + margin - 1 and columns
// likewise stand in valid memory.
template <typename T>
XMat_<T> createWithMargin(Size size, std::int32_t margin) {
  const std::int64_t rows = size.rows + 2 * std::int64_t{margin};
  const std::int64_t cols = size.cols + 2 * std::int64_t{margin};
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  if (margin < 0 || rows > kMax || cols > kMax) throw std::bad_alloc();
  XMat_<T> backing;
  backing.create(static_cast<std::int32_t>(rows), static_cast<std::int32_t>(cols));
  return backing.view(margin, margin, size.cols, size.rows);
}

}  // namespace cve

#include "imaging/XMat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <utility>

namespace {

TEST(XMat, TypeIsTheClassConstantWhateverTheFieldHolds) {
  cve::XMat_<short> image;
  EXPECT_EQ(image.type_code, 3);
  image.type_code = 77;
  const cve::XMat& base = image;
  EXPECT_EQ(base.type(), 3);
  EXPECT_EQ(cve::XMat(1, 1, 4, nullptr, 77).type(), 77);
  EXPECT_EQ(cve::XMat_<unsigned char>().type(), 0);
  EXPECT_EQ(cve::XMat_<int>().type(), 4);
  EXPECT_EQ(cve::XMat_<float>().type(), 5);
  EXPECT_EQ(cve::XMat_<double>().type(), 6);
}

TEST(XMat, ViewSharesPixelsAndOutlivesItsParent) {
  cve::XMat_<float> view;
  {
    cve::XMat_<float> parent;
    ASSERT_TRUE(parent.create(4, 7));
    EXPECT_EQ(parent.stride, 28);
    parent.at(2, 3) = 5.0f;
    view = parent.view(3, 1, 2, 2);
    EXPECT_EQ(parent.owner.use_count(), 2);
  }
  EXPECT_EQ(view.stride, 28);
  EXPECT_EQ(view.at(1, 0), 5.0f);
  EXPECT_EQ(view.at(0, 0), 0.0f);

  const float* const pixels = view.row(0);
  cve::XMat_<float> moved = std::move(view);
  EXPECT_EQ(moved.row(0), pixels);
  EXPECT_EQ(moved.owner.use_count(), 1);
}

TEST(XMat, CreateKeepsToTheStrideAndReplacesTheMemory) {
  cve::XMat_<float> image;
  image.create(3, 2);
  image.at(2, 1) = 1.0f;
  const cve::XMat_<float> before = image;
  image.create(3, 2, 20);
  EXPECT_EQ(image.owner->size(), 15u);
  EXPECT_EQ(image.row(2) - image.row(0), 10);
  EXPECT_EQ(before.at(2, 1), 1.0f);
  EXPECT_EQ(before.owner.use_count(), 1);
}

TEST(XMat, SizesBeyondThirtyTwoBitsAreRefused) {
  cve::XMat_<double> image;
  image.create(1, 1);
  const std::pair<std::int32_t, std::int32_t> sizes[] = {
      {50000, 50000}, {INT32_MAX, INT32_MAX}, {1, INT32_MAX}, {-1, 4}, {4, -1}};
  for (const auto& [rows, cols] : sizes) EXPECT_THROW(image.create(rows, cols), std::bad_alloc) << rows;
  EXPECT_EQ(image.rows, 1);
  EXPECT_NE(image.owner, nullptr);
  EXPECT_THROW(cve::createWithMargin<float>({8, INT32_MAX}, 2), std::bad_alloc);
}

TEST(XMat, AnImageWithoutPixelsIsEmptyWhateverItsSize) {
  for (const auto& [rows, cols] : {std::pair{0, 5}, {5, 0}, {0, 0}}) {
    cve::XMat_<short> image;
    image.create(4, 4);
    EXPECT_FALSE(image.empty());
    EXPECT_TRUE(image.create(rows, cols));
    EXPECT_TRUE(image.empty());
    ASSERT_NE(image.owner, nullptr);
    EXPECT_TRUE(image.owner->empty());
  }
}

TEST(XMat, MarginIsAddressableOnAllSides) {
  cve::XMat_<float> image = cve::createWithMargin<float>({5, 3}, 2);
  EXPECT_EQ(image.cols, 5);
  EXPECT_EQ(image.rows, 3);
  EXPECT_EQ(image.stride, 36);
  const float* const first = image.owner->data();
  const float* const last = first + image.owner->size() - 1;
  EXPECT_EQ(&image.at(-2, -2), first);
  EXPECT_EQ(&image.at(4, 6), last);
}

}  // namespace

#include "render/ViewMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "PlainView.h"
#include "RenderRigs.h"
#include "base/ThreadTeam.h"

namespace twintrue::render {
namespace {

using render_test::plain_project;
using render_test::plain_ray;
using render_test::small_rig;
using render_test::view_of;

struct Row {
  std::vector<double> x, y;
  explicit Row(int count) : x(static_cast<std::size_t>(count)), y(x.size()) {}
};

const std::vector<View> kViews{view_of(Projection::kHalfEquirect, 1500, 1501),
                               view_of(Projection::kHalfEquirect, 90, 90),
                               view_of(Projection::kRectilinear, 1601, 900, 100),
                               view_of(Projection::kRectilinear, 800, 600, 60, 70, -20),
                               view_of(Projection::kRectilinear, 640, 480, 170),
                               view_of(Projection::kFisheye, 1400, 1300, 180),
                               view_of(Projection::kFisheye, 1024, 1024, 360)};

// What is promised: a thousandth of a pixel of a frame 8192 wide, from which this one differs by its scale.
constexpr double kTolerance = 1e-3;

TEST(ViewMap, IsTheProjectionItself) {
  for (const std::uint32_t kind : {1U, 2U}) {
    RigModel rig = small_rig(kind);
    for (EyeModel* const eye : {&rig.left, &rig.right}) eye->scale *= 16;
    for (const View& view : kViews) {
      SCOPED_TRACE(testing::Message() << "format " << kind << ", view " << &view - kViews.data());
      const ViewMap map(rig.right, view);
      Row row(view.width);
      double worst = 0.0;
      int seen = 0;
      int disagreements = 0;
      for (int y = 0; y < view.height; y += 7) {
        map.row(y, 0, view.width, row.x.data(), row.y.data());
        for (int x = 0; x < view.width; ++x) {
          const auto ray = plain_ray(view, x, y);
          const auto pixel = ray ? plain_project(rig.right, *ray) : std::nullopt;
          const auto i = static_cast<std::size_t>(x);
          if (pixel.has_value() == std::isnan(row.x[i])) ++disagreements;
          if (!pixel || std::isnan(row.x[i])) continue;
          worst = std::max({worst, std::fabs((*pixel)[0] - row.x[i]), std::fabs((*pixel)[1] - row.y[i])});
          ++seen;
        }
      }
      EXPECT_LT(worst, kTolerance);
      EXPECT_GT(seen, view.width * view.height / 7 / 6);
      EXPECT_EQ(disagreements, 0);
    }
  }
}

TEST(ViewMap, GivesPartsOfRowsAsItGivesWholeOnes) {
  const RigModel rig = small_rig(1);
  for (const View& view : kViews) {
    const ViewMap map(rig.left, view);
    const int y = view.height / 3;
    Row whole(view.width);
    map.row(y, 0, view.width, whole.x.data(), whole.y.data());
    const int begin = view.width / 5 + 3;
    const int end = view.width - 5;
    Row part(end - begin);
    map.row(y, begin, end, part.x.data(), part.y.data());
    for (std::size_t i = 0; i < part.x.size(); ++i) {
      const std::size_t at = i + static_cast<std::size_t>(begin);
      if (std::isnan(whole.x[at])) {
        ASSERT_TRUE(std::isnan(part.x[i])) << at;
      } else {
        ASSERT_EQ(part.x[i], whole.x[at]) << at;
        ASSERT_EQ(part.y[i], whole.y[at]) << at;
      }
    }
  }
}

TEST(View, RefusesWhatIsNoPicture) {
  EXPECT_TRUE(is_possible(view_of(Projection::kHalfEquirect, 1, 1)));
  EXPECT_FALSE(is_possible(view_of(Projection::kHalfEquirect, 0, 1)));
  for (const double fov : {0.0, -1.0, 180.0, std::nan("")}) {
    EXPECT_FALSE(is_possible(view_of(Projection::kRectilinear, 10, 10, fov))) << fov;
  }
  EXPECT_TRUE(is_possible(view_of(Projection::kFisheye, 10, 10, 360)));
  EXPECT_FALSE(is_possible(view_of(Projection::kFisheye, 10, 10, 361)));
  EXPECT_FALSE(is_possible(view_of(Projection::kRectilinear, 10, 10, 90, INFINITY)));
}

}  // namespace
}  // namespace twintrue::render

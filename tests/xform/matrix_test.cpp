#include <qv/xform/matrix.h>

#include "tests/xform/routines.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using qv::xform::Box;
using qv::xform::h_bbox;
using qv::xform::Matrix;

constexpr Matrix identity{1, 0, 0, 0, 1, 0, 0, 0, 1};

TEST(Routines, AreInstalledOnlyTogether) {
  for (int missing = 0; missing < 4; ++missing) {
    std::uint64_t given[] = {address_of(dgesv_), address_of(cblas_dgemm), address_of(cblas_dgemv),
                             address_of(dgetrf_)};
    given[missing] = 0;
    EXPECT_FALSE(qv::xform::set_blas(given[0], given[1], given[2], given[3]));
    EXPECT_FALSE(qv::xform::has_blas());
  }
  EXPECT_TRUE(install_routines());
  EXPECT_TRUE(qv::xform::has_blas());
}

class MatrixTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(install_routines());
  }
  double uniform(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random_);
  }
  // A well-conditioned map that keeps what lies within 1000 pixels before the horizon.
  Matrix matrix() {
    Matrix m = identity;
    for (const std::size_t i : {0, 1, 3, 4}) {
      m[i] += uniform(-0.4, 0.4);
    }
    m[2] = uniform(-500, 500);
    m[5] = uniform(-500, 500);
    m[6] = uniform(-4e-4, 4e-4);
    m[7] = uniform(-4e-4, 4e-4);
    return m;
  }
  std::mt19937 random_{31};
};

TEST_F(MatrixTest, InverseUndoesAProduct) {
  for (int round = 0; round < 1000; ++round) {
    const Matrix a = matrix();
    const Matrix b = matrix();
    const Matrix ab = qv::xform::product(a, b);
    EXPECT_NEAR(ab[2], a[0] * b[2] + a[1] * b[5] + a[2] * b[8], 1e-9);
    const auto undo = qv::xform::inverse(ab);
    const auto undo_a = qv::xform::inverse(a);
    const auto undo_b = qv::xform::inverse(b);
    ASSERT_TRUE(undo && undo_a && undo_b);
    const Matrix one_by_one = qv::xform::product(*undo_b, *undo_a);
    const Matrix nothing = qv::xform::product(*undo, ab);
    for (std::size_t i = 0; i < 9; ++i) {
      EXPECT_NEAR((*undo)[i], one_by_one[i], 1e-9 * (1 + std::abs(one_by_one[i])));
      EXPECT_NEAR(nothing[i], identity[i], 1e-9 * (i == 2 || i == 5 ? 1000 : 1));
    }
  }
  EXPECT_FALSE(qv::xform::inverse({1, 2, 3, 2, 4, 6, 0, 0, 1}));
}

TEST_F(MatrixTest, BoxesHoldTheImageAndNoPixelMore) {
  for (int round = 0; round < 1000; ++round) {
    const Matrix m = matrix();
    const auto x0 = static_cast<std::int64_t>(uniform(-900, 800));
    const auto y0 = static_cast<std::int64_t>(uniform(-900, 800));
    const Box box{x0, y0, x0 + 1 + static_cast<std::int64_t>(uniform(0, 90)), y0 + 50};
    const auto image = h_bbox(box, m, 0);
    ASSERT_TRUE(image);
    double least[2] = {1e9, 1e9};
    double most[2] = {-1e9, -1e9};
    for (int i = 0; i < 64; ++i) {
      // The corners first, then points inside.
      const double u = i < 4 ? i % 2 : uniform(0, 1);
      const double v = i < 4 ? i / 2 : uniform(0, 1);
      const double x = std::lerp(static_cast<double>(box[0]), static_cast<double>(box[2]), u);
      const double y = std::lerp(static_cast<double>(box[1]), static_cast<double>(box[3]), v);
      for (std::size_t axis = 0; axis < 2; ++axis) {
        const double w = m[6] * x + m[7] * y + m[8];
        const double at = (m[3 * axis] * x + m[3 * axis + 1] * y + m[3 * axis + 2]) / w;
        least[axis] = std::min(least[axis], at);
        most[axis] = std::max(most[axis], at);
      }
    }
    for (std::size_t axis = 0; axis < 2; ++axis) {
      const auto low = static_cast<double>((*image)[axis]);
      const auto high = static_cast<double>((*image)[axis + 2]);
      EXPECT_TRUE(low <= least[axis] + 2e-6 && least[axis] < low + 1);
      EXPECT_TRUE(high >= most[axis] - 2e-6 && most[axis] > high - 1);
    }
    const auto grown = h_bbox(box, m, 3);
    EXPECT_EQ(*grown, (Box{(*image)[0] - 3, (*image)[1] - 3, (*image)[2] + 3, (*image)[3] + 3}));
  }
}

TEST_F(MatrixTest, BoxesAtTheLimits) {
  const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Box box{0, 0, 10, 10};
  EXPECT_EQ(h_bbox(box, {1, 0, 5e-7, 0, 1, -5e-7, 0, 0, 1}, 0), box);  // a hair over the edge is on it
  EXPECT_FALSE(h_bbox(box, {1, 0, 0, 0, 1, 0, -0.1, 0, 1}, 0));        // its right edge is on the horizon
  for (const std::int64_t pad : {lowest, -(lowest + 1)}) {
    EXPECT_THROW(h_bbox(box, identity, pad), std::overflow_error);
  }
  EXPECT_THROW(h_bbox(box, {1e18, 0, 0, 0, 1, 0, 0, 0, 1}, 0), std::overflow_error);
  EXPECT_THROW(h_bbox(box, {1, 0, 0, 0, 1, 0, 0, 0, nan}, 0), std::invalid_argument);
  // Not only in the first corner: infinity times 0.
  EXPECT_THROW(h_bbox({1, 1, 0, 1}, {INFINITY, 0, 0, 0, 1, 0, 0, 0, 1}, 0), std::invalid_argument);
}

}  // namespace

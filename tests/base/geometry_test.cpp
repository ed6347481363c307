#include "roomcore/geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

bool IsMark(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, 4);
  return bits == 0x7FC00000u;  // the quiet NaN
}

TEST(Geometry, DefaultsCopiesAndConversions) {
  EXPECT_TRUE(IsMark(kFloatNA));
  Point3D p;
  EXPECT_TRUE(p.x == 0 && p.y == 0 && p.z == 0);
  Size3D s;
  s = Size3D(7, 8, 9);
  EXPECT_TRUE(s.cx == 7 && s.cy == 8 && s.cz == 9);
  const Rect3D r(Rect3D(1, 2, 3, 4, 5));
  EXPECT_TRUE(r.left == 1 && r.top == 2 && r.right == 3 && r.bottom == 4 && r.z == 5);

  PointOpt po;
  SizeOpt so;
  RectOpt ro;
  PointOptEx pe;
  for (float f :
       {po.x, po.y, po.z, so.cx, so.cy, so.cz, ro.left, ro.top, ro.right, ro.bottom, ro.z, pe.x, pe.y, pe.z})
    EXPECT_TRUE(IsMark(f));
  EXPECT_EQ(pe.extra, 0);

  const RectOpt sized(Point3D(10, 20, 5), Size3D(30, 40, 7));
  EXPECT_TRUE(sized.left == 10 && sized.top == 20 && sized.right == 40 && sized.bottom == 60 && sized.z == 5);
  EXPECT_EQ(RectOpt(Rect3D(1, 2, 3, 4, 5)).right, 3);
  EXPECT_EQ(PointOpt(Point3D(1, 2, 3)).z, 3);
  // The extra field is copied, and ResetNan leaves it.
  PointOptEx b;
  b = PointOptEx(1, 2, 3, int64_t(1) << 40);
  PointOptEx c(b);
  c.ResetNan();
  EXPECT_EQ(b.y, 2);
  EXPECT_EQ(c.extra, int64_t(1) << 40);
  EXPECT_EQ(c.IsNan(), 1);
}

TEST(Geometry, IsNan) {
  const float na = kFloatNA;
  // Points and sizes look at the first two fields, rectangles need all four sides.
  EXPECT_EQ(PointOpt(na, 1, 1).IsNan(), 1);
  EXPECT_EQ(PointOpt(1, na, 1).IsNan(), 1);
  EXPECT_EQ(PointOpt(1, 1, na).IsNan(), 0);
  EXPECT_EQ(SizeOpt(1, na, 1).IsNan(), 1);
  EXPECT_EQ(SizeOpt(1, 1, na).IsNan(), 0);
  EXPECT_EQ(RectOpt(na, 1, 1, 1, 1).IsNan(), 0);
  EXPECT_EQ(RectOpt(na, na, na, 1, 1).IsNan(), 0);
  EXPECT_EQ(RectOpt(na, na, na, na, 1).IsNan(), 1);
  RectOpt r(1, 2, 3, 4, 5);
  r.ResetNan();
  EXPECT_TRUE(IsMark(r.z));
  r.z = 9;
  EXPECT_EQ(r.IsNan(), 1) << "z takes no part";
}

TEST(Geometry, IsEqualNeedsToleranceStrictlyAboveTheDifferenceAndIgnoresTheThirdField) {
  const float zero = 0, half = 0.5f, tol = 0.01f, big = 1000, na = kFloatNA;
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1), zero), 0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1.5f, 1), half), 0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1.25f, 1), half), 1);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1.25f), half), 1);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1.5f), half), 0);
  EXPECT_EQ(RectOpt(1, 1, 1, 1, 0).IsEqual(RectOpt(1, 1, 1, 1.5f, 0), half), 0);
  EXPECT_EQ(RectOpt(1, 1, 1, 1, 0).IsEqual(RectOpt(1.25f, 1, 1, 1, 0), half), 1);
  EXPECT_EQ(SizeOpt(1, 2, 3).IsEqual(SizeOpt(1, 2, 300), tol), 1);
  EXPECT_EQ(RectOpt(1, 2, 3, 4, 5).IsEqual(RectOpt(1, 2, 3, 4, -5), tol), 1);
  EXPECT_EQ(PointOpt(1, 2, 3).IsEqual(PointOpt(1, 2, na), tol), 1);
  // Marks make values unequal: a marked value equals nothing, a NaN difference
  // fails, and a partly marked rectangle (IsNan 0) differs by NaN.
  EXPECT_EQ(PointOpt().IsEqual(PointOpt(), big), 0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(na, 1), big), 0);
  EXPECT_EQ(RectOpt(na, 1, 1, 1, 1).IsEqual(RectOpt(na, 1, 1, 1, 1), big), 0);
  // The difference counts as a float: (1 + 2^-23) - 2^-30 rounds to
  // 1 + 2^-23, which the same tolerance doesn't exceed; unrounded, it would.
  const float above_one = std::ldexp(1.0f, -23) + 1.0f, tiny = std::ldexp(1.0f, -30);
  EXPECT_EQ(PointOpt(above_one, 0).IsEqual(PointOpt(tiny, 0), above_one), 0);
  EXPECT_EQ(SizeOpt(0, above_one).IsEqual(SizeOpt(0, tiny), above_one), 0);
  EXPECT_EQ(RectOpt(0, 0, 0, above_one, 0).IsEqual(RectOpt(0, 0, 0, tiny, 0), above_one), 0);
}

}  // namespace

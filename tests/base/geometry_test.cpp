#include "geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

bool IsMark(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, 4);
  return bits == 0x7FC00000u;
}

TEST(Geometry, MarkIsTheQuietNaN) { EXPECT_TRUE(IsMark(kFloatNA)); }

TEST(Geometry, PlainTypesDefaultToZeroAndTakeFieldsInOrder) {
  Point3D p;
  EXPECT_EQ(p.x, 0);
  EXPECT_EQ(p.z, 0);
  Point3D q(1, 2, 3);
  EXPECT_EQ(q.x, 1);
  EXPECT_EQ(q.y, 2);
  EXPECT_EQ(q.z, 3);
  Rect3D r(1, 2, 3, 4, 5);
  EXPECT_EQ(r.left, 1);
  EXPECT_EQ(r.bottom, 4);
  EXPECT_EQ(r.z, 5);
  Size3D s(7, 8, 9);
  Size3D t;
  t = s;
  EXPECT_EQ(t.cx, 7);
  EXPECT_EQ(t.cz, 9);
}

TEST(Geometry, OptionalDefaultsAreAllMarked) {
  PointOpt p;
  EXPECT_TRUE(IsMark(p.x) && IsMark(p.y) && IsMark(p.z));
  SizeOpt s;
  EXPECT_TRUE(IsMark(s.cx) && IsMark(s.cy) && IsMark(s.cz));
  RectOpt r;
  EXPECT_TRUE(IsMark(r.left) && IsMark(r.top) && IsMark(r.right) && IsMark(r.bottom) && IsMark(r.z));
  PointOptEx e;
  EXPECT_TRUE(IsMark(e.x) && IsMark(e.y) && IsMark(e.z));
  EXPECT_EQ(e.extra, 0);
}

TEST(Geometry, IsNanOnPointsAndSizesLooksAtTheFirstTwoFields) {
  EXPECT_EQ(PointOpt(kFloatNA, 1, 1).IsNan(), 1);
  EXPECT_EQ(PointOpt(1, kFloatNA, 1).IsNan(), 1);
  EXPECT_EQ(PointOpt(1, 1, kFloatNA).IsNan(), 0);
  EXPECT_EQ(SizeOpt(1, kFloatNA, 1).IsNan(), 1);
  EXPECT_EQ(SizeOpt(1, 1, kFloatNA).IsNan(), 0);
}

TEST(Geometry, RectIsNanNeedsAllFourSides) {
  EXPECT_EQ(RectOpt(kFloatNA, 1, 1, 1, 1).IsNan(), 0);
  EXPECT_EQ(RectOpt(kFloatNA, kFloatNA, kFloatNA, 1, 1).IsNan(), 0);
  EXPECT_EQ(RectOpt(kFloatNA, kFloatNA, kFloatNA, kFloatNA, 1).IsNan(), 1);
  RectOpt r(1, 2, 3, 4, 5);
  r.ResetNan();
  EXPECT_TRUE(IsMark(r.z));
  r.z = 9;
  EXPECT_EQ(r.IsNan(), 1) << "z takes no part";
}

TEST(Geometry, IsEqualNeedsToleranceStrictlyAboveTheDifference) {
  const float zero = 0, half = 0.5f;
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1), zero), 0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1.5f, 1), half), 0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1.25f, 1), half), 1);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1.25f), half), 1);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1.5f), half), 0);
  EXPECT_EQ(RectOpt(1, 1, 1, 1, 0).IsEqual(RectOpt(1, 1, 1, 1.5f, 0), half), 0);
  EXPECT_EQ(RectOpt(1, 1, 1, 1, 0).IsEqual(RectOpt(1.25f, 1, 1, 1, 0), half), 1);
}

TEST(Geometry, ThirdFieldTakesNoPartInEquality) {
  const float tol = 0.01f;
  EXPECT_EQ(SizeOpt(1, 2, 3).IsEqual(SizeOpt(1, 2, 300), tol), 1);
  EXPECT_EQ(RectOpt(1, 2, 3, 4, 5).IsEqual(RectOpt(1, 2, 3, 4, -5), tol), 1);
  EXPECT_EQ(PointOpt(1, 2, 3).IsEqual(PointOpt(1, 2, kFloatNA), tol), 1);
}

TEST(Geometry, MarksMakeValuesUnequal) {
  const float big = 1000;
  EXPECT_EQ(PointOpt().IsEqual(PointOpt(), big), 0) << "a marked value equals nothing";
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(kFloatNA, 1), big), 0) << "NaN difference";
  EXPECT_EQ(RectOpt(kFloatNA, 1, 1, 1, 1).IsEqual(RectOpt(kFloatNA, 1, 1, 1, 1), big), 0)
      << "partly marked: IsNan is 0 but the marked field differs by NaN";
}

TEST(Geometry, RectFromPointAndSize) {
  RectOpt r(Point3D(10, 20, 5), Size3D(30, 40, 7));
  EXPECT_EQ(r.left, 10);
  EXPECT_EQ(r.top, 20);
  EXPECT_EQ(r.right, 40);
  EXPECT_EQ(r.bottom, 60);
  EXPECT_EQ(r.z, 5);
  RectOpt from_rect(Rect3D(1, 2, 3, 4, 5));
  EXPECT_EQ(from_rect.right, 3);
  PointOpt from_point(Point3D(1, 2, 3));
  EXPECT_EQ(from_point.z, 3);
}

TEST(Geometry, PointOptExCopiesExtraAndResetLeavesIt) {
  PointOptEx a(1, 2, 3, int64_t(1) << 40);
  PointOptEx b;
  b = a;
  EXPECT_EQ(b.extra, int64_t(1) << 40);
  EXPECT_EQ(b.y, 2);
  PointOptEx c(a);
  c.ResetNan();
  EXPECT_EQ(c.extra, int64_t(1) << 40);
  EXPECT_EQ(c.IsNan(), 1);
}

}  // namespace

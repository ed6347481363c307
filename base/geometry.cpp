#include "roomcore/geometry.h"

#include <cmath>
#include <cstring>

#include "fundus/fundus.h"

namespace {

float MakeMark() {
  const uint32_t bits = 0x7FC00000u;
  float value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

// The difference is rounded to a float before the comparison, whatever
// precision the arithmetic runs in (x87 keeps 64-bit mantissas in its
// registers); a NaN difference fails the strict comparison.
bool Within(float a, float b, float tolerance) {
  volatile float difference = a - b;
  return tolerance > std::fabs(static_cast<float>(difference));
}

}  // namespace

const float kFloatNA = MakeMark();

Point3D::Point3D() : x(0), y(0), z(0) {}
Point3D::Point3D(const Point3D& other) : x(other.x), y(other.y), z(other.z) {}
Point3D& Point3D::operator=(const Point3D& other) {
  x = other.x;
  y = other.y;
  z = other.z;
  return *this;
}

Size3D::Size3D() : cx(0), cy(0), cz(0) {}
Size3D::Size3D(const Size3D& other) : cx(other.cx), cy(other.cy), cz(other.cz) {}
Size3D& Size3D::operator=(const Size3D& other) {
  cx = other.cx;
  cy = other.cy;
  cz = other.cz;
  return *this;
}

Rect3D::Rect3D() : left(0), top(0), right(0), bottom(0), z(0) {}
Rect3D::Rect3D(const Rect3D& other)
    : left(other.left), top(other.top), right(other.right), bottom(other.bottom), z(other.z) {}
Rect3D& Rect3D::operator=(const Rect3D& other) {
  left = other.left;
  top = other.top;
  right = other.right;
  bottom = other.bottom;
  z = other.z;
  return *this;
}

PointOpt::PointOpt() : Point3D(kFloatNA, kFloatNA, kFloatNA) {}
PointOpt::PointOpt(const float& x_, const float& y_, const float& z_) : Point3D(x_, y_, z_) {}
PointOpt::PointOpt(const Point3D& point) : Point3D(point) {}
PointOpt::PointOpt(const PointOpt& other) : Point3D(other) {}
PointOpt& PointOpt::operator=(const PointOpt& other) {
  Point3D::operator=(other);
  return *this;
}
int PointOpt::IsNan() const { return (IsFloatNA(x) || IsFloatNA(y)) ? 1 : 0; }
void PointOpt::ResetNan() { x = y = z = kFloatNA; }
int PointOpt::IsEqual(const PointOpt& other, const float& tolerance) const {
  if (IsNan()) return 0;
  return (Within(x, other.x, tolerance) && Within(y, other.y, tolerance)) ? 1 : 0;
}

SizeOpt::SizeOpt() : Size3D(kFloatNA, kFloatNA, kFloatNA) {}
SizeOpt::SizeOpt(const float& cx_, const float& cy_, const float& cz_) : Size3D(cx_, cy_, cz_) {}
SizeOpt::SizeOpt(const SizeOpt& other) : Size3D(other) {}
SizeOpt& SizeOpt::operator=(const SizeOpt& other) {
  Size3D::operator=(other);
  return *this;
}
int SizeOpt::IsNan() const { return (IsFloatNA(cx) || IsFloatNA(cy)) ? 1 : 0; }
void SizeOpt::ResetNan() { cx = cy = cz = kFloatNA; }
int SizeOpt::IsEqual(const SizeOpt& other, const float& tolerance) const {
  if (IsNan()) return 0;
  return (Within(cx, other.cx, tolerance) && Within(cy, other.cy, tolerance)) ? 1 : 0;
}

RectOpt::RectOpt() : Rect3D(kFloatNA, kFloatNA, kFloatNA, kFloatNA, kFloatNA) {}
RectOpt::RectOpt(const float& left_, const float& top_, const float& right_, const float& bottom_,
                 const float& z_)
    : Rect3D(left_, top_, right_, bottom_, z_) {}
RectOpt::RectOpt(const Rect3D& rect) : Rect3D(rect) {}
RectOpt::RectOpt(const Point3D& origin, const Size3D& size)
    : Rect3D(origin.x, origin.y, origin.x + size.cx, origin.y + size.cy, origin.z) {}
RectOpt::RectOpt(const RectOpt& other) : Rect3D(other) {}
RectOpt& RectOpt::operator=(const RectOpt& other) {
  Rect3D::operator=(other);
  return *this;
}
int RectOpt::IsNan() const {
  return (IsFloatNA(left) && IsFloatNA(top) && IsFloatNA(right) && IsFloatNA(bottom)) ? 1 : 0;
}
void RectOpt::ResetNan() { left = top = right = bottom = z = kFloatNA; }
int RectOpt::IsEqual(const RectOpt& other, const float& tolerance) const {
  if (IsNan()) return 0;
  return (Within(left, other.left, tolerance) && Within(top, other.top, tolerance) &&
          Within(right, other.right, tolerance) && Within(bottom, other.bottom, tolerance))
             ? 1
             : 0;
}

PointOptEx::PointOptEx() : PointOpt(), extra(0) {}
PointOptEx::PointOptEx(const float& x_, const float& y_, const float& z_, const int64_t& extra_)
    : PointOpt(x_, y_, z_), extra(extra_) {}
PointOptEx::PointOptEx(const PointOptEx& other) : PointOpt(other), extra(other.extra) {}
PointOptEx& PointOptEx::operator=(const PointOptEx& other) {
  PointOpt::operator=(other);
  extra = other.extra;
  return *this;
}

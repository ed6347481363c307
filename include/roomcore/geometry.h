// Geometry value types for the host. Point3D, Size3D and Rect3D take their
// field constructors from Fundus.dll; the optional forms may hold a "no value"
// mark (a quiet NaN) in place of a number.
#pragma once

#include <cstdint>

#include "roomcore_export.h"

#if defined(FUNDUS_BUILD)
#define ROOMCORE_FUNDUS_API __declspec(dllexport)
#else
#define ROOMCORE_FUNDUS_API __declspec(dllimport)
#endif

// The mark: the quiet NaN with the bit pattern 0x7FC00000, set at load.
extern ROOMCORE_API const float kFloatNA;

class Point3D {
 public:
  ROOMCORE_API Point3D();
  ROOMCORE_FUNDUS_API Point3D(const float& x, const float& y, const float& z);
  ROOMCORE_API Point3D(const Point3D& other);
  ROOMCORE_API Point3D& operator=(const Point3D& other);
  // Inline so that the constructors in either DLL can set up the object.
  virtual ~Point3D() {}

  float x;
  float y;
  float z;
};

class Size3D {
 public:
  ROOMCORE_API Size3D();
  ROOMCORE_FUNDUS_API Size3D(const float& cx, const float& cy, const float& cz);
  ROOMCORE_API Size3D(const Size3D& other);
  ROOMCORE_API Size3D& operator=(const Size3D& other);
  virtual ~Size3D() {}

  float cx;
  float cy;
  float cz;
};

class Rect3D {
 public:
  ROOMCORE_API Rect3D();
  ROOMCORE_FUNDUS_API Rect3D(const float& left, const float& top, const float& right, const float& bottom,
                             const float& z);
  ROOMCORE_API Rect3D(const Rect3D& other);
  ROOMCORE_API Rect3D& operator=(const Rect3D& other);
  virtual ~Rect3D() {}

  float left;
  float top;
  float right;
  float bottom;
  float z;
};

class PointOpt : public Point3D {
 public:
  ROOMCORE_API PointOpt();
  ROOMCORE_API PointOpt(const float& x, const float& y, const float& z = kFloatNA);
  ROOMCORE_API PointOpt(const Point3D& point);
  ROOMCORE_API PointOpt(const PointOpt& other);
  ROOMCORE_API PointOpt& operator=(const PointOpt& other);
  virtual ~PointOpt() {}

  // 1 if x or y is the mark.
  ROOMCORE_API int IsNan() const;
  ROOMCORE_API void ResetNan();
  // 0 if this is IsNan; else 1 when |x - other.x| and |y - other.y| are both
  // strictly below tolerance.
  ROOMCORE_API int IsEqual(const PointOpt& other, const float& tolerance) const;
};

class SizeOpt : public Size3D {
 public:
  ROOMCORE_API SizeOpt();
  ROOMCORE_API SizeOpt(const float& cx, const float& cy, const float& cz = kFloatNA);
  ROOMCORE_API SizeOpt(const SizeOpt& other);
  ROOMCORE_API SizeOpt& operator=(const SizeOpt& other);
  virtual ~SizeOpt() {}

  ROOMCORE_API int IsNan() const;
  ROOMCORE_API void ResetNan();
  ROOMCORE_API int IsEqual(const SizeOpt& other, const float& tolerance) const;
};

class RectOpt : public Rect3D {
 public:
  ROOMCORE_API RectOpt();
  ROOMCORE_API RectOpt(const float& left, const float& top, const float& right, const float& bottom,
                       const float& z = kFloatNA);
  ROOMCORE_API RectOpt(const Rect3D& rect);
  ROOMCORE_API RectOpt(const Point3D& origin, const Size3D& size);
  ROOMCORE_API RectOpt(const RectOpt& other);
  ROOMCORE_API RectOpt& operator=(const RectOpt& other);
  virtual ~RectOpt() {}

  // 1 only if all of left, top, right and bottom are the mark.
  ROOMCORE_API int IsNan() const;
  ROOMCORE_API void ResetNan();
  ROOMCORE_API int IsEqual(const RectOpt& other, const float& tolerance) const;
};

class PointOptEx : public PointOpt {
 public:
  ROOMCORE_API PointOptEx();
  ROOMCORE_API PointOptEx(const float& x, const float& y, const float& z, const int64_t& extra);
  ROOMCORE_API PointOptEx(const PointOptEx& other);
  ROOMCORE_API PointOptEx& operator=(const PointOptEx& other);
  virtual ~PointOptEx() {}

  int64_t extra;
};

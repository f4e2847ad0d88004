// Plain geometry values of the UI model, in points.
#pragma once

namespace kit {

struct Point {
  double x = 0, y = 0;
  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0, height = 0;
  bool operator==(const Size&) const = default;
};

struct Rect {
  Point origin;
  Size size;
  double width() const { return size.width; }
  double height() const { return size.height; }
  bool operator==(const Rect&) const = default;
};

inline Rect makeRect(double x, double y, double w, double h) { return Rect{{x, y}, {w, h}}; }

struct EdgeInsets {
  double top = 0, left = 0, bottom = 0, right = 0;
  bool operator==(const EdgeInsets&) const = default;
};

// A 2-D affine transform [a b 0; c d 0; tx ty 1].
struct AffineTransform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  static AffineTransform identity() { return {}; }
  static AffineTransform scale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
  bool isIdentity() const { return *this == AffineTransform{}; }
  bool operator==(const AffineTransform&) const = default;
};

// Corners of a rectangle, as a bit mask: 1 top left, 2 top right, 4 bottom left, 8 bottom
// right.
enum RectCorner : unsigned {
  kRectCornerTopLeft = 1,
  kRectCornerTopRight = 2,
  kRectCornerBottomLeft = 4,
  kRectCornerBottomRight = 8,
  kRectCornerAll = 15,
};

}  // namespace kit

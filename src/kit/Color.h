// Color: red, green, blue and alpha, each from 0.0 to 1.0.
#pragma once

#include <string>

namespace kit {

struct Color {
  double red = 0, green = 0, blue = 0, alpha = 1;

  static Color black() { return {0, 0, 0, 1}; }
  static Color white() { return {1, 1, 1, 1}; }
  static Color clear() { return {0, 0, 0, 0}; }
  // The platform's gray: white level 0.5.
  static Color gray() { return {0.5, 0.5, 0.5, 1}; }
  static Color rgb(int r, int g, int b) { return {r / 255.0, g / 255.0, b / 255.0, 1}; }

  // "#RRGGBBAA" in upper case, for display and binding.
  std::string hexString() const;
  bool operator==(const Color&) const = default;
};

}  // namespace kit

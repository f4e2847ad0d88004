#include "kit/Color.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kit {

std::string Color::hexString() const {
  auto byte = [](double v) {
    return static_cast<int>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
  };
  char buf[16];
  std::snprintf(buf, sizeof buf, "#%02X%02X%02X%02X", byte(red), byte(green), byte(blue),
                byte(alpha));
  return buf;
}

}  // namespace kit

// Image: either a named image of the app's assets ("check", "permission") or decoded pixels
// delivered by the platform (thumbnails, frames). Images are immutable and shared; "no image"
// is a null ImagePtr, and an image of size zero with no name and no pixels is the empty image.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/Geometry.h"

namespace kit {

class Image;
using ImagePtr = std::shared_ptr<const Image>;

class Image {
 public:
  // True when `a` and `b` show the same picture for certain: the same object, both none, or
  // two named images of one name. Decoded pixels are compared by object only.
  static bool same(const ImagePtr& a, const ImagePtr& b) {
    if (a == b) return true;
    return a && b && !a->name_.empty() && a->name_ == b->name_;
  }

  // The empty image: no name, no pixels, size zero.
  static ImagePtr empty();
  // A named image from the app's assets. The name is not checked here; whoever renders
  // resolves it.
  static ImagePtr named(std::string name);
  // Decoded pixels: `rgba` holds width * height * 4 bytes, rows top to bottom.
  static ImagePtr fromPixels(int width, int height, std::vector<std::uint8_t> rgba);

  const std::string& name() const { return name_; }
  Size size() const { return size_; }
  int pixelWidth() const { return pixelWidth_; }
  int pixelHeight() const { return pixelHeight_; }
  const std::vector<std::uint8_t>& rgba() const { return rgba_; }
  bool isEmpty() const { return name_.empty() && rgba_.empty(); }

 private:
  std::string name_;
  Size size_;
  int pixelWidth_ = 0, pixelHeight_ = 0;
  std::vector<std::uint8_t> rgba_;
};

}  // namespace kit

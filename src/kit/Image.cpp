#include "kit/Image.h"

#include "kit/Fatal.h"

namespace kit {

ImagePtr Image::empty() { return std::make_shared<const Image>(); }

ImagePtr Image::named(std::string name) {
  auto image = std::make_shared<Image>();
  image->name_ = std::move(name);
  return image;
}

ImagePtr Image::fromPixels(int width, int height, std::vector<std::uint8_t> rgba) {
  if (width < 0 || height < 0 ||
      rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
    fatal("Image::fromPixels: pixel buffer does not match its size");
  }
  auto image = std::make_shared<Image>();
  image->pixelWidth_ = width;
  image->pixelHeight_ = height;
  image->size_ = Size{static_cast<double>(width), static_cast<double>(height)};
  image->rgba_ = std::move(rgba);
  return image;
}

}  // namespace kit

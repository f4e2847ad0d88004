// Cryptographically secure random bytes (the operating system's generator).
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

class SecureRandom {
 public:
  virtual ~SecureRandom() = default;
  // Fills `count` bytes at `bytes`; false when the generator fails (the bytes are then
  // unspecified). Any thread.
  virtual bool copyBytes(std::uint8_t* bytes, std::size_t count) = 0;
};

}  // namespace platform

// gzip compression of bundles and experiment responses (zlib).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "kit/Value.h"
#include "platform/Types.h"

// The gzip form of `data` (a gzip header, deflate, a trailer); nothing, with `error` filled,
// when zlib fails. Empty input gives a valid gzip stream of empty content.
std::optional<kit::Data> APMGzipData(std::span<const std::uint8_t> data, platform::Error* error);

// The content of a gzip (or zlib) stream; nothing, with `error` filled, when the input is not
// a complete stream or its content would exceed `limit` bytes.
std::optional<kit::Data> APMGunzipData(std::span<const std::uint8_t> data, platform::Error* error,
                                       std::size_t limit = SIZE_MAX);

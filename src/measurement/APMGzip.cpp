#include "measurement/APMGzip.h"

#include <zlib.h>

#include <string>

#include "measurement/APMError.h"

namespace {

constexpr int kGzipWindowBits = 15 + 16;        // deflate window, gzip wrapper
constexpr int kAutoDetectWindowBits = 15 + 32;  // gzip or zlib wrapper
constexpr std::size_t kChunk = 16384;

bool zlibError(const char* what, int status, const z_stream& stream, platform::Error* error) {
  std::string message = std::string(what) + " failed with zlib code " + std::to_string(status);
  if (stream.msg) message += std::string(": ") + stream.msg;
  return APMSetError(error, kAPMErrorCodeFailedStep, message);
}

}  // namespace

std::optional<kit::Data> APMGzipData(std::span<const std::uint8_t> data, platform::Error* error) {
  z_stream stream{};
  int status = deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindowBits, 8,
                            Z_DEFAULT_STRATEGY);
  if (status != Z_OK) {
    zlibError("deflateInit2", status, stream, error);
    return std::nullopt;
  }
  kit::Data out(deflateBound(&stream, static_cast<uLong>(data.size())));
  stream.next_in = const_cast<Bytef*>(data.data());
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  status = deflate(&stream, Z_FINISH);
  if (status != Z_STREAM_END) {
    zlibError("deflate", status, stream, error);
    deflateEnd(&stream);
    return std::nullopt;
  }
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::optional<kit::Data> APMGunzipData(std::span<const std::uint8_t> data, platform::Error* error,
                                       std::size_t limit) {
  z_stream stream{};
  int status = inflateInit2(&stream, kAutoDetectWindowBits);
  if (status != Z_OK) {
    zlibError("inflateInit2", status, stream, error);
    return std::nullopt;
  }
  stream.next_in = const_cast<Bytef*>(data.data());
  stream.avail_in = static_cast<uInt>(data.size());
  kit::Data out;
  do {
    std::size_t used = out.size();
    out.resize(used + kChunk);
    stream.next_out = out.data() + used;
    stream.avail_out = static_cast<uInt>(kChunk);
    status = inflate(&stream, Z_NO_FLUSH);
    out.resize(used + kChunk - stream.avail_out);
    if (out.size() > limit) {
      inflateEnd(&stream);
      APMSetError(error, kAPMErrorCodeFailedStep,
                  "Inflated data exceeds " + std::to_string(limit) + " bytes");
      return std::nullopt;
    }
  } while (status == Z_OK);  // a truncated stream ends in Z_BUF_ERROR
  if (status != Z_STREAM_END) zlibError("inflate", status, stream, error);
  inflateEnd(&stream);
  if (status != Z_STREAM_END) return std::nullopt;
  return out;
}

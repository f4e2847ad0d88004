// Video frames: the FFmpeg libraries find, decode, scale and convert one frame.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <numbers>
#include <optional>
#include <vector>

#include "desktop/media/MediaDecoding.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

namespace desktop {
namespace {

std::string averror(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

// Owns the libraries' objects of one decoding.
struct FrameDecoder {
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  AVFrame* kept = av_frame_alloc();  // the best frame so far
  bool haveKept = false;
  SwsContext* scaler = nullptr;
  ~FrameDecoder() {
    sws_freeContext(scaler);
    av_frame_free(&kept);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&codec);
    avformat_close_input(&format);
  }
};

// Clockwise degrees (0, 90, 180 or 270) a player turns the stream's frames for display. The
// display matrix maps a stored pixel (x, y) to (a x + c y, b x + d y) on the screen, whose y
// grows downwards, with a, b, c, d its entries 0, 1, 3 and 4; its turn is the angle of (a, b).
// Mirroring is not applied.
int displayRotation(const AVStream* stream) {
  const auto* matrix = reinterpret_cast<const std::int32_t*>(
      av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
  if (!matrix || (matrix[0] == 0 && matrix[1] == 0)) return 0;
  double degrees = std::atan2(static_cast<double>(matrix[1]), static_cast<double>(matrix[0])) *
                   180.0 / std::numbers::pi;
  long quarter = std::lround(degrees / 90.0);
  return static_cast<int>(((quarter % 4) + 4) % 4) * 90;
}

// `pixels` (RGBA, width x height) turned clockwise by `degrees`.
std::vector<std::uint8_t> rotated(const std::vector<std::uint8_t>& pixels, int width, int height,
                                  int degrees) {
  std::vector<std::uint8_t> out(pixels.size());
  const bool quarter = degrees == 90 || degrees == 270;
  const int outWidth = quarter ? height : width;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      int ox = x, oy = y;
      if (degrees == 90) {
        ox = height - 1 - y;
        oy = x;
      } else if (degrees == 180) {
        ox = width - 1 - x;
        oy = height - 1 - y;
      } else if (degrees == 270) {
        ox = y;
        oy = width - 1 - x;
      }
      std::memcpy(&out[(static_cast<std::size_t>(oy) * outWidth + ox) * 4],
                  &pixels[(static_cast<std::size_t>(y) * width + x) * 4], 4);
    }
  }
  return out;
}

// Offers a decoded frame (in d.frame) to the search for the frame shown at `target` (in the
// stream's time base; none: the first frame). True when the search is over.
bool considerFrame(FrameDecoder& d, std::optional<std::int64_t> target) {
  std::int64_t pts = d.frame->best_effort_timestamp;
  bool later = target && pts != AV_NOPTS_VALUE && pts > *target;
  if (d.haveKept && later) return true;  // the kept frame is the last one at or before it
  av_frame_unref(d.kept);
  av_frame_move_ref(d.kept, d.frame);
  d.haveKept = true;
  return !target || later || pts == *target;
}

// Reads and decodes until the frame shown at `target` is kept, or the stream ends.
void findFrame(FrameDecoder& d, int streamIndex, std::optional<std::int64_t> target) {
  bool ended = false;
  while (!ended) {
    int rc = av_read_frame(d.format, d.packet);
    if (rc < 0) {
      ended = true;
      avcodec_send_packet(d.codec, nullptr);  // drain what the decoder holds
    } else {
      bool ours = d.packet->stream_index == streamIndex;
      // A damaged packet is skipped; the next key frame may still decode.
      if (ours) avcodec_send_packet(d.codec, d.packet);
      av_packet_unref(d.packet);
      if (!ours) continue;
    }
    while (avcodec_receive_frame(d.codec, d.frame) == 0) {
      if (considerFrame(d, target)) return;
    }
  }
}

}  // namespace

kit::ImagePtr decodeVideoFrame(const std::string& path, double seconds, kit::Size target,
                               int contentMode, std::string* error) {
  static std::once_flag quiet;
  std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });
  auto fail = [&](const std::string& why) -> kit::ImagePtr {
    if (error) *error = "cannot decode a frame of " + path + ": " + why;
    return nullptr;
  };
  FrameDecoder d;
  if (!d.packet || !d.frame || !d.kept) return fail("out of memory");
  // Only the file protocol: a name is never taken for another protocol's address.
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  std::string url = "file:" + path;
  int rc = avformat_open_input(&d.format, url.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (rc < 0) return fail(averror(rc));
  if ((rc = avformat_find_stream_info(d.format, nullptr)) < 0) return fail(averror(rc));
  const AVCodec* codec = nullptr;
  int index = av_find_best_stream(d.format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (index < 0 || !codec) return fail("no picture track that can be decoded");
  AVStream* stream = d.format->streams[index];
  d.codec = avcodec_alloc_context3(codec);
  if (!d.codec) return fail("out of memory");
  if ((rc = avcodec_parameters_to_context(d.codec, stream->codecpar)) < 0) return fail(averror(rc));
  d.codec->thread_count = 1;  // callers decode many files at once, one per thread
  if ((rc = avcodec_open2(d.codec, codec, nullptr)) < 0) return fail(averror(rc));

  std::optional<std::int64_t> wanted;
  if (seconds > 0) {
    std::int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
    // Rounded down: a frame that starts after the time is never taken for it.
    double bounded = std::min(seconds, 1e9);
    wanted = start + av_rescale_q_rnd(std::llround(bounded * AV_TIME_BASE), AV_TIME_BASE_Q,
                                      stream->time_base, AV_ROUND_DOWN);
    // Back to the key frame before it; when seeking fails, decoding starts at the beginning.
    if (av_seek_frame(d.format, index, *wanted, AVSEEK_FLAG_BACKWARD) >= 0) {
      avcodec_flush_buffers(d.codec);
    }
  }
  findFrame(d, index, wanted);
  if (!d.haveKept) return fail("no frame could be decoded");

  const AVFrame* frame = d.kept;
  int rotation = displayRotation(stream);
  AVRational aspect = frame->sample_aspect_ratio;
  int shownWidth = frame->width;
  if (aspect.num > 0 && aspect.den > 0 && aspect.num != aspect.den) {
    shownWidth = std::max(1, static_cast<int>(std::lround(frame->width * av_q2d(aspect))));
  }
  const bool quarter = rotation == 90 || rotation == 270;
  PixelSize shown = quarter ? PixelSize{frame->height, shownWidth}
                            : PixelSize{shownWidth, frame->height};
  PixelSize out = scaledPixelSize(shown, target, contentMode);
  // Scaled before it is turned: the scaler's output has the stored orientation.
  int width = quarter ? out.height : out.width;
  int height = quarter ? out.width : out.height;
  d.scaler = sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format),
                            width, height, AV_PIX_FMT_RGBA, SWS_AREA, nullptr, nullptr, nullptr);
  if (!d.scaler) return fail("the frame's pixel format cannot be converted");
  // The scaler writes whole aligned rows; the kit wants them without padding.
  int stride = FFALIGN(width * 4, 64);
  std::vector<std::uint8_t> padded(static_cast<std::size_t>(stride) * height + 64);
  std::uint8_t* planes[4] = {padded.data(), nullptr, nullptr, nullptr};
  int strides[4] = {stride, 0, 0, 0};
  if (sws_scale(d.scaler, frame->data, frame->linesize, 0, frame->height, planes, strides) !=
      height) {
    return fail("the frame could not be converted");
  }
  const std::size_t row = static_cast<std::size_t>(width) * 4;
  std::vector<std::uint8_t> pixels(row * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    std::memcpy(pixels.data() + row * y, padded.data() + static_cast<std::size_t>(stride) * y, row);
  }
  if (rotation != 0) pixels = rotated(pixels, width, height, rotation);
  return kit::Image::fromPixels(out.width, out.height, std::move(pixels));
}

}  // namespace desktop

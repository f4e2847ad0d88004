#include "samplegen/SampleMedia.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QBuffer>
#include <QImage>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

#include "kit/Date.h"

// The metadata library's 0.27 headers use std::auto_ptr throughout.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
}
#include <libheif/heif.h>

// The HEVC encoder behind the HEIF library keeps a few buffers until exit; the leak checker
// of sanitizer builds is told to let those be; so do the FFmpeg decoders behind Qt's media
// players.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265\nleak:libavutil.so\nleak:libffmpegmediaplugin.so\n";
}
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }

namespace samplegen {
namespace {

void fail(std::string* error, std::string message) {
  if (error) *error = std::move(message);
}

void fillExif(Exiv2::ExifData& exif, const ExifFields& fields) {
  if (!fields.dateTimeOriginal.empty()) {
    exif["Exif.Photo.DateTimeOriginal"] = fields.dateTimeOriginal;
    exif["Exif.Image.DateTime"] = fields.dateTimeOriginal;
  }
  if (!fields.subSecTimeOriginal.empty()) {
    exif["Exif.Photo.SubSecTimeOriginal"] = fields.subSecTimeOriginal;
  }
  if (!fields.offsetTimeOriginal.empty()) {
    // Tag 0x9011 (OffsetTimeOriginal) is newer than this library's tag table: set it by number.
    Exiv2::ExifKey key(0x9011, "Photo");
    Exiv2::AsciiValue value(fields.offsetTimeOriginal);
    exif.add(key, &value);
  }
  if (fields.orientation != 0) {
    exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(fields.orientation);
  }
}

}  // namespace

Bytes encodeImage(const char* format, int width, int height, std::uint32_t seed) {
  QImage image(width, height, QImage::Format_RGB32);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint32_t r = (seed * 37u + static_cast<std::uint32_t>(x) * 4u) & 0xFF;
      std::uint32_t g = (seed * 91u + static_cast<std::uint32_t>(y) * 5u) & 0xFF;
      std::uint32_t b = (seed * 13u + static_cast<std::uint32_t>(x + y) * 3u) & 0xFF;
      image.setPixel(x, y, qRgb(static_cast<int>(r), static_cast<int>(g), static_cast<int>(b)));
    }
  }
  QByteArray encoded;
  QBuffer buffer(&encoded);
  buffer.open(QIODevice::WriteOnly);
  if (!image.save(&buffer, format, 85)) return {};
  return Bytes(encoded.begin(), encoded.end());
}

Bytes withExif(const Bytes& imageBytes, const ExifFields& fields, std::string* error) {
  try {
    auto image = Exiv2::ImageFactory::open(imageBytes.data(), static_cast<long>(imageBytes.size()));
    image->readMetadata();
    fillExif(image->exifData(), fields);
    image->writeMetadata();
    Exiv2::BasicIo& io = image->io();
    io.seek(0, Exiv2::BasicIo::beg);
    Exiv2::DataBuf all = io.read(static_cast<long>(io.size()));
    return Bytes(all.pData_, all.pData_ + all.size_);
  } catch (const std::exception& e) {
    fail(error, std::string("cannot write Exif: ") + e.what());
    return {};
  }
}

namespace {

using HeifImage = std::unique_ptr<heif_image, void (*)(const heif_image*)>;

// The RGB picture of `seed`, width x height; null with `error` filled on failure.
HeifImage heifPicture(int width, int height, std::uint32_t seed, std::string* error) {
  heif_image* rawImage = nullptr;
  heif_error err =
      heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &rawImage);
  if (err.code != heif_error_Ok) {
    fail(error, err.message);
    return HeifImage(nullptr, heif_image_release);
  }
  HeifImage image(rawImage, heif_image_release);
  heif_image_add_plane(image.get(), heif_channel_interleaved, width, height, 8);
  int stride = 0;
  std::uint8_t* plane = heif_image_get_plane(image.get(), heif_channel_interleaved, &stride);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = plane + y * stride + x * 3;
      p[0] = static_cast<std::uint8_t>(seed * 37u + static_cast<unsigned>(x) * 4u);
      p[1] = static_cast<std::uint8_t>(seed * 91u + static_cast<unsigned>(y) * 5u);
      p[2] = static_cast<std::uint8_t>(seed * 13u);
    }
  }
  return image;
}

}  // namespace

Bytes encodeHeic(int width, int height, std::uint32_t seed, const ExifFields* fields,
                 std::string* error) {
  return encodeHeic(width, height, seed, fields, HeicThumbnail{}, error);
}

Bytes encodeHeic(int width, int height, std::uint32_t seed, const ExifFields* fields,
                 const HeicThumbnail& thumbnail, std::string* error) {
  std::unique_ptr<heif_context, void (*)(heif_context*)> ctx(heif_context_alloc(),
                                                             heif_context_free);
  heif_encoder* rawEncoder = nullptr;
  heif_error err =
      heif_context_get_encoder_for_format(ctx.get(), heif_compression_HEVC, &rawEncoder);
  if (err.code != heif_error_Ok) {
    fail(error, std::string("no HEVC encoder: ") + err.message);
    return {};
  }
  std::unique_ptr<heif_encoder, void (*)(heif_encoder*)> encoder(rawEncoder, heif_encoder_release);
  heif_encoder_set_logging_level(encoder.get(), 0);
  heif_encoder_set_lossy_quality(encoder.get(), 50);

  HeifImage image = heifPicture(width, height, seed, error);
  if (!image) return {};
  heif_image_handle* rawHandle = nullptr;
  err = heif_context_encode_image(ctx.get(), image.get(), encoder.get(), nullptr, &rawHandle);
  if (err.code != heif_error_Ok) {
    fail(error, std::string("HEIC encoding failed: ") + err.message);
    return {};
  }
  std::unique_ptr<heif_image_handle, void (*)(const heif_image_handle*)> handle(
      rawHandle, heif_image_handle_release);
  if (thumbnail.size > 0) {
    HeifImage picture = heifPicture(width, height, thumbnail.seed, error);
    if (!picture) return {};
    heif_image_handle* thumbHandle = nullptr;
    err = heif_context_encode_thumbnail(ctx.get(), picture.get(), handle.get(), encoder.get(),
                                        nullptr, thumbnail.size, &thumbHandle);
    if (thumbHandle) heif_image_handle_release(thumbHandle);
    if (err.code != heif_error_Ok || !thumbHandle) {
      fail(error, std::string("cannot add the thumbnail: ") + err.message);
      return {};
    }
  }
  if (fields) {
    Exiv2::ExifData exif;
    fillExif(exif, *fields);
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
    err = heif_context_add_exif_metadata(ctx.get(), handle.get(), blob.data(),
                                         static_cast<int>(blob.size()));
    if (err.code != heif_error_Ok) {
      fail(error, std::string("cannot add Exif to HEIC: ") + err.message);
      return {};
    }
  }
  Bytes out;
  heif_writer writer{1, [](heif_context*, const void* data, size_t size, void* userdata) {
                       auto* sink = static_cast<Bytes*>(userdata);
                       auto* p = static_cast<const std::uint8_t*>(data);
                       sink->insert(sink->end(), p, p + size);
                       return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
                     }};
  err = heif_context_write(ctx.get(), &writer, &out);
  if (err.code != heif_error_Ok) {
    fail(error, err.message);
    return {};
  }
  return out;
}

namespace {

std::string averror(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

// Owns the objects of one video being written.
struct VideoWriter {
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  AVStream* stream = nullptr;
  ~VideoWriter() {
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&codec);
    if (format) {
      if (format->pb) avio_closep(&format->pb);
      avformat_free_context(format);
    }
  }

  // Sends `input` (null flushes) and writes every packet that comes out.
  int encode(AVFrame* input) {
    int rc = avcodec_send_frame(codec, input);
    if (rc < 0) return rc;
    while (true) {
      rc = avcodec_receive_packet(codec, packet);
      if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return 0;
      if (rc < 0) return rc;
      packet->duration = 1;  // one frame, in the codec's time base
      av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
      packet->stream_index = stream->index;
      rc = av_interleaved_write_frame(format, packet);
      if (rc < 0) return rc;
    }
  }
};

}  // namespace

namespace {

// BT.601 limited range, the chroma of each 2x2 block averaged.
void rgbaToYuv420(const std::vector<std::uint8_t>& rgba, int width, int height, AVFrame* frame) {
  auto at = [&](int x, int y, int c) {
    return static_cast<int>(rgba[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4 + static_cast<std::size_t>(c)]);
  };
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int r = at(x, y, 0), g = at(x, y, 1), b = at(x, y, 2);
      frame->data[0][y * frame->linesize[0] + x] = static_cast<std::uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
    }
  }
  for (int y = 0; y < height / 2; ++y) {
    for (int x = 0; x < width / 2; ++x) {
      int r = 0, g = 0, b = 0;
      for (int dy = 0; dy < 2; ++dy) {
        for (int dx = 0; dx < 2; ++dx) {
          r += at(2 * x + dx, 2 * y + dy, 0);
          g += at(2 * x + dx, 2 * y + dy, 1);
          b += at(2 * x + dx, 2 * y + dy, 2);
        }
      }
      r /= 4;
      g /= 4;
      b /= 4;
      frame->data[1][y * frame->linesize[1] + x] = static_cast<std::uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
      frame->data[2][y * frame->linesize[2] + x] = static_cast<std::uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
    }
  }
}

}  // namespace

bool writeVideo(const std::string& path, const VideoOptions& clip, std::string* error) {
  double frames = clip.seconds * clip.fps;
  if (clip.fps <= 0 || frames < 1 || std::floor(frames) != frames) {
    fail(error, "the length must be a whole number of frames");
    return false;
  }
  if (av_log_get_level() > AV_LOG_ERROR) av_log_set_level(AV_LOG_ERROR);
  VideoWriter w;
  int rc = avformat_alloc_output_context2(&w.format, nullptr, clip.container.c_str(), path.c_str());
  if (rc < 0 || !w.format) {
    fail(error, "no muxer " + clip.container);
    return false;
  }
  const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
  if (!encoder) {
    fail(error, "no MPEG-4 encoder");
    return false;
  }
  w.stream = avformat_new_stream(w.format, nullptr);
  w.codec = avcodec_alloc_context3(encoder);
  w.codec->width = clip.width;
  w.codec->height = clip.height;
  w.codec->pix_fmt = AV_PIX_FMT_YUV420P;
  w.codec->time_base = AVRational{1, clip.fps};
  w.codec->framerate = AVRational{clip.fps, 1};
  w.codec->gop_size = 10;
  w.codec->max_b_frames = 0;
  if (clip.bitRate > 0) w.codec->bit_rate = clip.bitRate;
  if (w.format->oformat->flags & AVFMT_GLOBALHEADER) w.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if ((rc = avcodec_open2(w.codec, encoder, nullptr)) < 0) {
    fail(error, "cannot open the encoder: " + averror(rc));
    return false;
  }
  avcodec_parameters_from_context(w.stream->codecpar, w.codec);
  w.stream->time_base = w.codec->time_base;
  if (clip.rotation != 0) {
    auto* matrix = reinterpret_cast<std::int32_t*>(
        av_stream_new_side_data(w.stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(std::int32_t)));
    if (!matrix) {
      fail(error, "cannot add the display matrix");
      return false;
    }
    // The angle is counterclockwise with y pointing up: clockwise on a screen.
    av_display_rotation_set(matrix, clip.rotation);
  }
  if (clip.creationTime)
    av_dict_set(&w.format->metadata, "creation_time", clip.creationTime->c_str(), 0);
  if ((rc = avio_open(&w.format->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
    fail(error, "cannot create " + path + ": " + averror(rc));
    return false;
  }
  if ((rc = avformat_write_header(w.format, nullptr)) < 0) {
    fail(error, "cannot write the header: " + averror(rc));
    return false;
  }
  w.frame = av_frame_alloc();
  w.packet = av_packet_alloc();
  w.frame->format = w.codec->pix_fmt;
  w.frame->width = clip.width;
  w.frame->height = clip.height;
  av_frame_get_buffer(w.frame, 0);
  std::vector<std::uint8_t> rgba;
  for (int i = 0; i < static_cast<int>(frames); ++i) {
    av_frame_make_writable(w.frame);
    if (clip.drawFrame) {
      rgba.assign(static_cast<std::size_t>(clip.width) * static_cast<std::size_t>(clip.height) * 4, 0);
      clip.drawFrame(i, rgba);
      rgbaToYuv420(rgba, clip.width, clip.height, w.frame);
      w.frame->pts = i;
      if ((rc = w.encode(w.frame)) < 0) {
        fail(error, "encoding failed: " + averror(rc));
        return false;
      }
      continue;
    }
    for (int y = 0; y < clip.height; ++y) {
      for (int x = 0; x < clip.width; ++x) {
        w.frame->data[0][y * w.frame->linesize[0] + x] = static_cast<std::uint8_t>(x + y + i * 3);
      }
    }
    for (int y = 0; y < clip.height / 2; ++y) {
      std::memset(w.frame->data[1] + y * w.frame->linesize[1], 128,
                  static_cast<size_t>(clip.width / 2));
      std::memset(w.frame->data[2] + y * w.frame->linesize[2], 64 + i % 64,
                  static_cast<size_t>(clip.width / 2));
    }
    w.frame->pts = i;
    if ((rc = w.encode(w.frame)) < 0) {
      fail(error, "encoding failed: " + averror(rc));
      return false;
    }
  }
  if ((rc = w.encode(nullptr)) < 0 || (rc = av_write_trailer(w.format)) < 0) {
    fail(error, "finishing the video failed: " + averror(rc));
    return false;
  }
  return true;
}

bool setModificationTime(const std::string& path, double seconds) {
  timespec times[2];
  times[0].tv_sec = static_cast<time_t>(std::floor(seconds));
  times[0].tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
  times[1] = times[0];
  return utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

bool writeFile(const std::string& path, const Bytes& bytes, std::optional<double> mtime,
               std::string* error) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    fail(error, "cannot create " + path + ": " + std::strerror(errno));
    return false;
  }
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      fail(error, "cannot write " + path + ": " + std::strerror(errno));
      ::close(fd);
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
  if (mtime && !setModificationTime(path, *mtime)) {
    fail(error, "cannot set the time of " + path + ": " + std::strerror(errno));
    return false;
  }
  return true;
}

double utcSeconds(int year, int month, int day, int hour, int minute, int second) {
  std::int64_t days =
      kit::daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  return static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second);
}

}  // namespace samplegen

#pragma GCC diagnostic pop

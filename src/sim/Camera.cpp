#include "sim/Camera.h"

#include "kit/Dispatch.h"
#include "platform/Platform.h"

namespace sim {
namespace {

void put32(std::vector<std::uint8_t>& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(v >> shift));
}

std::uint32_t get32(const std::vector<std::uint8_t>& in, std::size_t at) {
  std::uint32_t v = 0;
  for (std::size_t i = 0; i < 4; ++i) v = (v << 8) | in[at + i];
  return v;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> ImageCodec::jpegData(const kit::ImagePtr& image, double) {
  if (!image || image->rgba().empty()) return std::nullopt;
  std::vector<std::uint8_t> out{0xFF, 0xD8, 0xFF, 0xE0};
  put32(out, static_cast<std::uint32_t>(image->pixelWidth()));
  put32(out, static_cast<std::uint32_t>(image->pixelHeight()));
  out.insert(out.end(), image->rgba().begin(), image->rgba().end());
  out.push_back(0xFF);
  out.push_back(0xD9);
  return out;
}

kit::ImagePtr ImageCodec::decode(const std::vector<std::uint8_t>& data) {
  if (data.size() < 14 || data[0] != 0xFF || data[1] != 0xD8 || data[2] != 0xFF || data[3] != 0xE0) return nullptr;
  std::uint64_t w = get32(data, 4), h = get32(data, 8);
  if (w == 0 || h == 0 || w > 16384 || h > 16384 || data.size() != 14 + w * h * 4) return nullptr;
  if (data[data.size() - 2] != 0xFF || data.back() != 0xD9) return nullptr;
  return kit::Image::fromPixels(static_cast<int>(w), static_cast<int>(h),
                                std::vector<std::uint8_t>(data.begin() + 12, data.end() - 2));
}

kit::ImagePtr ImageCodec::imageWithContentsOfFile(const std::string& path) {
  auto bytes = platform::fileManager().contentsAtPath(path, nullptr);
  return bytes ? decode(*bytes) : nullptr;
}

void Camera::setAvailable(bool available) {
  std::lock_guard lock(mu_);
  available_ = available;
}

void Camera::queueCaptures(std::deque<Capture> captures) {
  std::lock_guard lock(mu_);
  queue_ = std::move(captures);
}

int Camera::captureCount() const {
  std::lock_guard lock(mu_);
  return captures_;
}

bool Camera::isSourceTypeAvailable() {
  std::lock_guard lock(mu_);
  return available_;
}

void Camera::capture(std::function<void(platform::CaptureResult)> finished) {
  Capture what = Capture::Photo;
  int n;
  {
    std::lock_guard lock(mu_);
    if (!queue_.empty()) {
      what = queue_.front();
      queue_.pop_front();
    }
    n = ++captures_;
  }
  platform::CaptureResult result;
  std::string path = "/sim/tmp/capture-" + std::to_string(n) + ".MOV";
  if (what == Capture::Photo) {
    std::vector<std::uint8_t> px(8 * 6 * 4, 0x80);
    result.originalImage = kit::Image::fromPixels(8, 6, std::move(px));
  } else if (what == Capture::Video) {
    auto& files = platform::fileManager();
    files.createDirectoryAtPath("/sim/tmp", true, nullptr);
    std::string movie = "sim movie " + std::to_string(n);
    files.writeData(std::vector<std::uint8_t>(movie.begin(), movie.end()), path, nullptr);
    result.mediaURL = platform::fileURLWithPath(path);
  } else if (what == Capture::UnreadableVideo) {
    result.mediaURL = platform::fileURLWithPath(path);
  }
  kit::mainQueue().async([finished = std::move(finished), result] { finished(result); });
}

void FileExport::setChoice(std::optional<std::string> folder) {
  std::lock_guard lock(mu_);
  choice_ = std::move(folder);
}

int FileExport::questionCount() const {
  std::lock_guard lock(mu_);
  return questions_;
}

void FileExport::chooseFolder(int, std::function<void(std::optional<std::string>)> chosen) {
  std::optional<std::string> folder;
  {
    std::lock_guard lock(mu_);
    ++questions_;
    folder = choice_;
  }
  kit::mainQueue().async([chosen = std::move(chosen), folder] { chosen(folder); });
}

}  // namespace sim

#include "desktop/media/SharedThumbnails.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QBuffer>
#include <QByteArray>
#include <QCryptographicHash>
#include <QImageReader>
#include <QImageWriter>

#include <cerrno>
#include <cstdlib>

namespace desktop {
namespace {

const char* flavorName(int size) { return size <= SharedThumbnails::kNormal ? "normal" : "large"; }

bool isPathCharacter(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-': case '.': case '_': case '~':                                  // unreserved
    case '!': case '$': case '&': case '\'': case '(': case ')': case '*':   // sub-delims
    case '+': case ',': case ';': case '=':
    case ':': case '@': case '/':
      return true;
    default:
      return false;
  }
}

// Makes `dir` and its missing parents with mode 0700.
bool makeFolders(const std::string& dir) {
  if (dir.empty()) return false;
  struct stat st;
  if (::stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  auto slash = dir.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !makeFolders(dir.substr(0, slash))) return false;
  return ::mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST;
}

bool writeAll(int fd, const QByteArray& bytes) {
  const char* p = bytes.constData();
  qsizetype left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, static_cast<std::size_t>(left));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    left -= n;
  }
  return true;
}

}  // namespace

std::string SharedThumbnails::uriOf(const std::string& path) {
  static const char* hex = "0123456789ABCDEF";
  std::string uri = "file://";
  for (unsigned char c : path) {
    if (isPathCharacter(c)) {
      uri += static_cast<char>(c);
    } else {
      uri += '%';
      uri += hex[c >> 4];
      uri += hex[c & 15];
    }
  }
  return uri;
}

std::string SharedThumbnails::pathFor(const std::string& path, int size) const {
  QByteArray digest = QCryptographicHash::hash(QByteArray::fromStdString(uriOf(path)), QCryptographicHash::Md5);
  return folder_ + "/" + flavorName(size) + "/" + digest.toHex().toStdString() + ".png";
}

QImage SharedThumbnails::read(const ThumbnailSource& source, int size) const {
  QImageReader reader(QString::fromStdString(pathFor(source.path, size)), "png");
  QSize stored = reader.size();
  if (!stored.isValid() || stored.width() > size || stored.height() > size) return {};
  // Qt's reader tells the tags once the picture is read (a thumbnail is small).
  QImage thumb = reader.read();
  if (thumb.isNull() || thumb.text("Thumb::URI").toStdString() != uriOf(source.path)) return {};
  bool ok = false;
  if (thumb.text("Thumb::MTime").toLongLong(&ok) != source.mtimeSeconds || !ok) return {};
  QString taggedSize = thumb.text("Thumb::Size");
  if (!taggedSize.isEmpty() && taggedSize.toLongLong() != source.fileSize) return {};
  return thumb;
}

bool SharedThumbnails::write(const ThumbnailSource& source, const QImage& picture, int size) const {
  if (picture.isNull() || source.path.rfind(folder_ + "/", 0) == 0) return false;  // none of our own
  QImage thumb = picture.width() > size || picture.height() > size
                     ? picture.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                     : picture;
  thumb.setText("Thumb::URI", QString::fromStdString(uriOf(source.path)));
  thumb.setText("Thumb::MTime", QString::number(source.mtimeSeconds));
  thumb.setText("Thumb::Size", QString::number(source.fileSize));
  thumb.setText("Software", "Solvanta");
  QByteArray png;
  QBuffer buffer(&png);
  buffer.open(QIODevice::WriteOnly);
  QImageWriter writer(&buffer, "png");
  writer.setCompression(1);  // fast: a thumbnail is written once and read often
  if (!writer.write(thumb)) return false;

  const std::string target = pathFor(source.path, size);
  if (!makeFolders(target.substr(0, target.find_last_of('/')))) return false;
  std::string temp = target + ".XXXXXX";
  int fd = ::mkstemp(temp.data());
  if (fd < 0) return false;
  bool written = ::fchmod(fd, 0600) == 0 && writeAll(fd, png);
  written = ::close(fd) == 0 && written;
  if (!written || ::rename(temp.c_str(), target.c_str()) != 0) {
    ::unlink(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace desktop

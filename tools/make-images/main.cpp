// make-images DIR: draws the app's named images (DIR/images/<name>.png) and the house ads'
// creatives (DIR/ads/*.png, and the video interstitial DIR/ads/video-interstitial.mp4). Run it
// when an image changes; the results are kept in assets/.
#include <QDir>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>

#include "samplegen/SampleMedia.h"

namespace {

const QColor kAccent("#2485EF");

QImage canvas(int w, int h) {
  QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  return image;
}

bool save(const QImage& image, const QString& path) {
  if (!image.save(path)) {
    std::fprintf(stderr, "make-images: cannot write %s\n", qPrintable(path));
    return false;
  }
  return true;
}

void draw(QImage& image, const std::function<void(QPainter&)>& f) {
  QPainter p(&image);
  p.setRenderHint(QPainter::Antialiasing);
  f(p);
}

QImage check(bool on) {
  QImage img = canvas(96, 96);
  draw(img, [&](QPainter& p) {
    if (on) {
      p.setBrush(kAccent);
      p.setPen(QPen(Qt::white, 6));
      p.drawEllipse(QRectF(6, 6, 84, 84));
      QPainterPath tick;
      tick.moveTo(28, 50);
      tick.lineTo(42, 64);
      tick.lineTo(69, 35);
      p.setBrush(Qt::NoBrush);
      p.setPen(QPen(Qt::white, 9, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
      p.drawPath(tick);
    } else {
      p.setBrush(QColor(255, 255, 255, 170));
      p.setPen(QPen(QColor("#8E8E93"), 6));
      p.drawEllipse(QRectF(6, 6, 84, 84));
    }
  });
  return img;
}

QImage roundedIcon(const QColor& color, const std::function<void(QPainter&)>& glyph) {
  QImage img = canvas(128, 128);
  draw(img, [&](QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawRoundedRect(QRectF(4, 4, 120, 120), 28, 28);
    glyph(p);
  });
  return img;
}

QImage photosIcon() {
  return roundedIcon(kAccent, [](QPainter& p) {
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(86, 42), 11, 11);
    QPainterPath hills;
    hills.moveTo(22, 100);
    hills.lineTo(52, 58);
    hills.lineTo(72, 84);
    hills.lineTo(84, 70);
    hills.lineTo(106, 100);
    hills.closeSubpath();
    p.drawPath(hills);
  });
}

QImage videosIcon() {
  return roundedIcon(QColor("#7A5AF8"), [](QPainter& p) {
    p.setBrush(Qt::white);
    QPainterPath play;
    play.moveTo(50, 36);
    play.lineTo(94, 64);
    play.lineTo(50, 92);
    play.closeSubpath();
    p.drawPath(play);
  });
}

void lock(QPainter& p, QPointF c, double s, const QColor& color) {
  p.setPen(QPen(color, 8 * s, Qt::SolidLine, Qt::RoundCap));
  p.setBrush(Qt::NoBrush);
  p.drawArc(QRectF(c.x() - 18 * s, c.y() - 40 * s, 36 * s, 44 * s), 0, 180 * 16);
  p.drawLine(QPointF(c.x() - 18 * s, c.y() - 18 * s), QPointF(c.x() - 18 * s, c.y() - 6 * s));
  p.drawLine(QPointF(c.x() + 18 * s, c.y() - 18 * s), QPointF(c.x() + 18 * s, c.y() - 6 * s));
  p.setPen(Qt::NoPen);
  p.setBrush(color);
  p.drawRoundedRect(QRectF(c.x() - 28 * s, c.y() - 8 * s, 56 * s, 44 * s), 8 * s, 8 * s);
}

QImage vaultIcon() {
  return roundedIcon(QColor("#1FA971"), [](QPainter& p) { lock(p, QPointF(64, 66), 1.0, Qt::white); });
}

QImage settingsIcon() {
  QImage img = canvas(96, 96);
  draw(img, [](QPainter& p) {
    p.setPen(QPen(kAccent, 8, Qt::SolidLine, Qt::RoundCap));
    for (int y : {28, 48, 68}) p.drawLine(18, y, 78, y);
  });
  return img;
}

QImage backIcon() {
  QImage img = canvas(96, 96);
  draw(img, [](QPainter& p) {
    p.setPen(QPen(kAccent, 9, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    QPainterPath chevron;
    chevron.moveTo(58, 20);
    chevron.lineTo(30, 48);
    chevron.lineTo(58, 76);
    p.drawPath(chevron);
  });
  return img;
}

// A person's bust in a grey disc: the picture of a contact without one.
QImage personIcon() {
  QImage img = canvas(96, 96);
  draw(img, [](QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor("#D0D5DD"));
    p.drawEllipse(QRectF(2, 2, 92, 92));
    p.setBrush(Qt::white);
    p.drawEllipse(QRectF(33, 20, 30, 30));
    p.drawChord(QRectF(20, 56, 56, 56), 0, 180 * 16);
  });
  return img;
}

QImage contactsIcon() { return roundedIcon(QColor("#1FA971"), [](QPainter& p) {
  p.setPen(Qt::NoPen);
  p.setBrush(Qt::white);
  p.drawEllipse(QRectF(46, 28, 36, 36));
  p.drawChord(QRectF(30, 70, 68, 60), 0, 180 * 16);
}); }

QImage infoIcon() {
  QImage img = canvas(96, 96);
  draw(img, [](QPainter& p) {
    p.setPen(QPen(kAccent, 6));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QRectF(8, 8, 80, 80));
    p.setPen(Qt::NoPen);
    p.setBrush(kAccent);
    p.drawEllipse(QRectF(43, 24, 10, 10));
    p.drawRoundedRect(QRectF(43, 42, 10, 32), 4, 4);
  });
  return img;
}

QImage closeIcon() {
  QImage img = canvas(96, 96);
  draw(img, [](QPainter& p) {
    p.setPen(QPen(kAccent, 9, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(28, 28), QPointF(68, 68));
    p.drawLine(QPointF(68, 28), QPointF(28, 68));
  });
  return img;
}

QImage deleteIcon() {
  QImage img = canvas(96, 96);
  draw(img, [](QPainter& p) {
    QColor red("#E5352B");
    p.setPen(QPen(red, 7, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawLine(20, 26, 76, 26);
    p.drawLine(38, 26, 40, 16);
    p.drawLine(40, 16, 56, 16);
    p.drawLine(56, 16, 58, 26);
    QPainterPath bin;
    bin.moveTo(26, 30);
    bin.lineTo(31, 82);
    bin.lineTo(65, 82);
    bin.lineTo(70, 30);
    p.drawPath(bin);
    p.drawLine(42, 42, 42, 70);
    p.drawLine(54, 42, 54, 70);
  });
  return img;
}

QImage videoBadge() {
  QImage img = canvas(64, 64);
  draw(img, [](QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 140));
    p.drawEllipse(QRectF(2, 2, 60, 60));
    p.setBrush(Qt::white);
    QPainterPath play;
    play.moveTo(25, 18);
    play.lineTo(46, 32);
    play.lineTo(25, 46);
    play.closeSubpath();
    p.drawPath(play);
  });
  return img;
}

QImage permissionArt() {
  QImage img = canvas(360, 360);
  draw(img, [](QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor("#E8F1FD"));
    p.drawEllipse(QRectF(20, 20, 320, 320));
    p.setBrush(Qt::white);
    p.setPen(QPen(kAccent, 6));
    p.drawRoundedRect(QRectF(80, 100, 170, 140), 18, 18);
    p.setPen(Qt::NoPen);
    p.setBrush(kAccent);
    QPainterPath hills;
    hills.moveTo(95, 225);
    hills.lineTo(145, 160);
    hills.lineTo(180, 200);
    hills.lineTo(200, 180);
    hills.lineTo(235, 225);
    hills.closeSubpath();
    p.drawPath(hills);
    p.drawEllipse(QPointF(210, 135), 14, 14);
    p.setBrush(QColor("#1FA971"));
    p.drawEllipse(QPointF(250, 245), 46, 46);
    lock(p, QPointF(250, 250), 0.75, Qt::white);
  });
  return img;
}

QImage creative(int w, int h, const QColor& from, const QColor& to, const QString& headline, const QString& line) {
  QImage img(w, h, QImage::Format_ARGB32_Premultiplied);
  draw(img, [&](QPainter& p) {
    QLinearGradient g(0, 0, w, h);
    g.setColorAt(0, from);
    g.setColorAt(1, to);
    p.fillRect(img.rect(), g);
    p.setPen(Qt::white);
    QFont big("DejaVu Sans", h > 200 ? 40 : 17, QFont::Bold);
    p.setFont(big);
    QRectF top(w * 0.06, h > 200 ? h * 0.30 : 4, w * 0.88, h > 200 ? h * 0.25 : h * 0.5);
    p.drawText(top, Qt::AlignCenter | Qt::TextWordWrap, headline);
    QFont small("DejaVu Sans", h > 200 ? 20 : 11);
    p.setFont(small);
    QRectF bottom(w * 0.06, h > 200 ? h * 0.56 : h * 0.5, w * 0.88, h > 200 ? h * 0.2 : h * 0.45);
    p.drawText(bottom, Qt::AlignCenter | Qt::TextWordWrap, line);
  });
  return img;
}

// Frame `index` of `count` of the house ads' video interstitial: the creative's colours
// turning slowly, its headline, and a bar that fills as the clip plays.
QImage videoFrame(int w, int h, int index, int count) {
  const double t = count > 1 ? static_cast<double>(index) / (count - 1) : 1.0;
  QColor from = QColor("#2485EF"), to = QColor("#7A5AF8");
  QImage img = creative(w, h, from, to, "Solvanta Pro", "No ads. Faster scans. Try it free for 7 days.");
  draw(img, [&](QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(255, 255, 255, 60));
    const double r = w * (0.18 + 0.1 * std::sin(t * 6.283));
    p.drawEllipse(QPointF(w * (0.2 + 0.6 * t), h * 0.18), r, r);
    p.setBrush(QColor(255, 255, 255, 90));
    p.drawRoundedRect(QRectF(w * 0.1, h * 0.86, w * 0.8, 10), 5, 5);
    p.setBrush(Qt::white);
    p.drawRoundedRect(QRectF(w * 0.1, h * 0.86, w * 0.8 * t, 10), 5, 5);
  });
  return img;
}

}  // namespace

// The app's icon at `size` pixels: two photo cards, one over the other (a duplicate), on the
// accent colour.
QImage appIcon(int size) {
  QImage img = canvas(size, size);
  draw(img, [&](QPainter& p) {
    p.scale(size / 128.0, size / 128.0);
    p.setPen(Qt::NoPen);
    p.setBrush(kAccent);
    p.drawRoundedRect(QRectF(4, 4, 120, 120), 28, 28);
    auto card = [&p](QPointF at, const QColor& sky) {
      p.setBrush(Qt::white);
      p.drawRoundedRect(QRectF(at, QSizeF(58, 58)), 8, 8);
      p.setBrush(sky);
      p.drawRoundedRect(QRectF(at + QPointF(5, 5), QSizeF(48, 48)), 5, 5);
      p.setBrush(Qt::white);
      QPainterPath hills;
      hills.moveTo(at + QPointF(8, 50));
      hills.lineTo(at + QPointF(24, 28));
      hills.lineTo(at + QPointF(34, 40));
      hills.lineTo(at + QPointF(40, 33));
      hills.lineTo(at + QPointF(50, 50));
      hills.closeSubpath();
      p.drawPath(hills);
    };
    card(QPointF(22, 22), QColor("#8CC4FF"));
    card(QPointF(48, 48), QColor("#B9A6FF"));
  });
  return img;
}

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: make-images DIR\n");
    return 2;
  }
  QDir dir(QString::fromLocal8Bit(argv[1]));
  dir.mkpath("images");
  dir.mkpath("ads");
  dir.mkpath("icons");
  bool ok = true;
  for (int size : {48, 64, 128, 256}) {
    ok &= save(appIcon(size), dir.filePath(QString("icons/solvanta-%1.png").arg(size)));
  }
  ok &= save(check(true), dir.filePath("images/check.png"));
  ok &= save(check(false), dir.filePath("images/uncheck.png"));
  ok &= save(permissionArt(), dir.filePath("images/permission.png"));
  ok &= save(backIcon(), dir.filePath("images/back.png"));
  ok &= save(deleteIcon(), dir.filePath("images/delete.png"));
  ok &= save(photosIcon(), dir.filePath("images/photos.png"));
  ok &= save(videosIcon(), dir.filePath("images/videos.png"));
  ok &= save(vaultIcon(), dir.filePath("images/vault.png"));
  ok &= save(settingsIcon(), dir.filePath("images/settings.png"));
  ok &= save(videoBadge(), dir.filePath("images/video.png"));
  ok &= save(personIcon(), dir.filePath("images/dp.png"));
  ok &= save(infoIcon(), dir.filePath("images/info.png"));
  ok &= save(contactsIcon(), dir.filePath("images/contacts.png"));
  ok &= save(closeIcon(), dir.filePath("images/close.png"));
  ok &= save(creative(720, 1080, QColor("#2485EF"), QColor("#7A5AF8"), "Solvanta Pro",
                      "No ads. Faster scans. Try it free for 7 days."),
             dir.filePath("ads/interstitial-1.png"));
  ok &= save(creative(720, 1080, QColor("#1FA971"), QColor("#0E6B8C"), "Back up before you clean",
                      "Keep a copy of every photo you delete."),
             dir.filePath("ads/interstitial-2.png"));
  ok &= save(creative(780, 100, QColor("#2485EF"), QColor("#4F9BF2"), "Solvanta Pro", "Clean your library without ads"),
             dir.filePath("ads/banner-1.png"));
  ok &= save(creative(780, 100, QColor("#1FA971"), QColor("#2BC48A"), "Photo Backup", "Your memories, safe in the cloud"),
             dir.filePath("ads/banner-2.png"));
  // The house ads' video interstitial: six seconds at 15 frames a second.
  samplegen::VideoOptions clip;
  clip.seconds = 6.0;
  clip.fps = 15;
  clip.width = 360;
  clip.height = 540;
  clip.container = "mp4";
  clip.bitRate = 400000;
  const int count = static_cast<int>(clip.seconds * clip.fps);
  clip.drawFrame = [&](int index, std::vector<std::uint8_t>& rgba) {
    QImage frame = videoFrame(clip.width, clip.height, index, count).convertToFormat(QImage::Format_RGBA8888);
    for (int y = 0; y < clip.height; ++y) {
      std::memcpy(rgba.data() + static_cast<std::size_t>(y) * clip.width * 4, frame.constScanLine(y),
                  static_cast<std::size_t>(clip.width) * 4);
    }
  };
  std::string error;
  if (!samplegen::writeVideo(dir.filePath("ads/video-interstitial.mp4").toStdString(), clip, &error)) {
    std::fprintf(stderr, "make-images: cannot write the video interstitial: %s\n", error.c_str());
    ok = false;
  }
  return ok ? 0 : 1;
}

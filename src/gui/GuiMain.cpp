#include "gui/GuiMain.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QLocalServer>
#include <QLocalSocket>
#include <QQuickWindow>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <chrono>
#include <future>
#include <optional>

#include "adclient/SVAScriptMessageLog.h"
#include "adclient/SVAVideoInterstitialAd.h"
#include "ads/AdConfig.h"
#include "desktop/system/DeploymentConfig.h"
#include "desktop/Platform.h"
#include "desktop/video/QtVideoPlayers.h"
#include "gui/FlowScreenshots.h"
#include "gui/GuiApp.h"
#include "kit/ApplicationNotifications.h"
#include "kit/Console.h"
#include "kit/NotificationCenter.h"
#include "measurement/consent/APMLaunchContext.h"
#include "measurement/events/APMAnalytics.h"
#include "platform/Platform.h"
#include "shell/Feedback.h"

namespace gui {
namespace {

struct Options {
  std::string library;
  std::string screenshotDir;
  std::string contacts;
};

std::optional<Options> parse(const std::vector<std::string>& args, std::string* error) {
  Options o;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](const char* name) -> std::optional<std::string> {
      if (a.rfind(std::string(name) + "=", 0) == 0) return a.substr(std::string(name).size() + 1);
      if (a == name && i + 1 < args.size()) return args[++i];
      return std::nullopt;
    };
    if (auto v = value("--library")) {
      o.library = *v;
    } else if (auto w = value("--screenshot")) {
      o.screenshotDir = *w;
    } else if (auto c = value("--contacts")) {
      o.contacts = *c;
    } else {
      *error = "unknown or incomplete option '" + a + "'";
      return std::nullopt;
    }
  }
  return o;
}

bool hasDisplay() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    const char* v = std::getenv(name);
    if (v && *v) return true;
  }
  return false;
}

// Asks the window's dialog from a background queue and waits for the answer; -1 when the app
// closed first.
int askInWindow(GuiApp& app, QString title, QString message, QStringList buttons) {
  auto answer = std::make_shared<std::promise<int>>();
  auto future = answer->get_future();
  kit::mainQueue().async([&app, title, message, buttons, answer] {
    if (app.isClosing()) {
      answer->set_value(-1);
      return;
    }
    app.bridge().ask(title, message, buttons, [answer](int index) { answer->set_value(index); });
  });
  while (future.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
    if (app.isClosing()) return -1;
  }
  return future.get();
}

// The house ads' pictures of one kind ("interstitial", "banner") from the app's resources.
std::vector<kit::ImagePtr> creatives(const QString& kind) {
  std::vector<kit::ImagePtr> images;
  QDir dir(":/assets/ads");
  for (const QString& name : dir.entryList({kind + "-*.png"}, QDir::Files, QDir::Name)) {
    QImage image = QImage(dir.filePath(name)).convertToFormat(QImage::Format_RGBA8888);
    if (image.isNull()) continue;
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(image.width()) * image.height() * 4);
    for (int y = 0; y < image.height(); ++y) {
      std::memcpy(rgba.data() + static_cast<std::size_t>(y) * image.width() * 4, image.constScanLine(y),
                  static_cast<std::size_t>(image.width()) * 4);
    }
    images.push_back(kit::Image::fromPixels(image.width(), image.height(), std::move(rgba)));
  }
  return images;
}

// The house ads' video creative, copied out of the app's resources to `folder` (Qt's players
// read files) unless a copy of the same size is there. Its path, or empty when it cannot be
// written.
std::string houseVideoFile(const std::string& folder) {
  QFile resource(":/assets/ads/video-interstitial.mp4");
  const QString path = QString::fromStdString(folder) + "/video-interstitial.mp4";
  QFile existing(path);
  if (existing.exists() && existing.size() == resource.size()) return path.toStdString();
  QDir().mkpath(QString::fromStdString(folder));
  QFile::remove(path + ".part");
  if (!resource.copy(path + ".part")) return {};
  QFile::remove(path);
  if (!QFile::rename(path + ".part", path)) return {};
  QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
  return path.toStdString();
}

// The app's console lines go to standard error, as a desktop program's diagnostics do; its
// standard output stays for what the program reports.
class StderrConsole : public kit::ConsoleSink {
 public:
  void write(std::string_view line) override {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
  }
};

// Tells the app's observers (the measurement client among them) about its lifecycle: launched,
// and active or not as the window gains or loses the foreground.
void postLifecycle(QGuiApplication& qt) {
  auto& center = kit::NotificationCenter::defaultCenter();
  center.postNotificationName(kit::kApplicationDidFinishLaunchingNotification);
  center.postNotificationName(kit::kApplicationDidBecomeActiveNotification);
  QObject::connect(&qt, &QGuiApplication::applicationStateChanged, [wasActive = true](Qt::ApplicationState state) mutable {
    auto& c = kit::NotificationCenter::defaultCenter();
    const bool active = state == Qt::ApplicationActive;
    if (active && !wasActive) c.postNotificationName(kit::kApplicationDidBecomeActiveNotification);
    if (!active && wasActive) c.postNotificationName(kit::kApplicationWillResignActiveNotification);
    if (state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended) {
      c.postNotificationName(kit::kApplicationDidEnterBackgroundNotification);
    }
    wasActive = active;
  });
}

// The window minimised or hidden is the app in the background; shown again, it comes back to
// the foreground. A cold start sends neither.
void followWindowVisibility(QQuickWindow& window) {
  QObject::connect(&window, &QWindow::visibilityChanged, [](QWindow::Visibility visibility) {
    auto& app = platform::application();
    if (visibility == QWindow::Minimized || visibility == QWindow::Hidden) {
      app.enterBackground();
    } else {
      app.enterForeground();
    }
  });
}

// The name of the local socket on which the running app takes URLs: one per user.
QString urlServerName() { return QStringLiteral("solvanta-urls-%1").arg(::getuid()); }

// Hands `url` to a running app; false when none answers.
bool handOverURL(const std::string& url) {
  QLocalSocket socket;
  socket.connectToServer(urlServerName());
  if (!socket.waitForConnected(1000)) return false;
  QByteArray line = QByteArray::fromStdString(url) + '\n';
  socket.write(line);
  bool sent = socket.waitForBytesWritten(2000);
  socket.disconnectFromServer();
  return sent;
}

// Takes URLs from later starts, one a line, and reports each as the URL that opened the app.
void listenForURLs(QLocalServer& server, QQuickWindow* window) {
  if (!server.listen(urlServerName())) {
    // A server left behind by a crashed app: nobody answered, so take its name.
    QLocalServer::removeServer(urlServerName());
    if (!server.listen(urlServerName())) return;
  }
  QObject::connect(&server, &QLocalServer::newConnection, [&server, window] {
    while (QLocalSocket* socket = server.nextPendingConnection()) {
      QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
      QObject::connect(socket, &QLocalSocket::readyRead, [socket, window] {
        while (socket->canReadLine()) {
          std::string url = socket->readLine(64 * 1024).trimmed().toStdString();
          if (url.rfind("solvanta:", 0) != 0) continue;
          APMAnalytics::handleOpenURL(url);
          if (window) {
            window->showNormal();
            window->raise();
            window->requestActivate();
          }
        }
      });
    }
  });
}

}  // namespace

int runApp(const std::vector<std::string>& allArgs, const char* programName) {
  // The measurement client's launch arguments and the URL that opened the app are taken
  // out first; what remains are the program's own options.
  std::vector<std::string> args;
  std::string openURL;
  for (std::string& a : APMLaunchContext::setLaunchArguments(allArgs)) {
    if (a.rfind("solvanta:", 0) == 0) {
      openURL = a;
    } else {
      args.push_back(std::move(a));
    }
  }
  std::string error;
  std::optional<Options> options = parse(args, &error);
  if (!options) {
    std::fprintf(stderr, "solvanta: %s (solvanta --help)\n", error.c_str());
    return 2;
  }
  if (!options->screenshotDir.empty()) {
    // The screenshot journey runs on a simulated phone, not on a library.
    if (!options->library.empty()) {
      std::fprintf(stderr, "solvanta: --screenshot draws a simulated library; --library does not apply\n");
      return 2;
    }
    return runScreenshotFlow(options->screenshotDir, programName);
  }
  static StderrConsole console;
  kit::setConsoleSink(&console);
  if (!hasDisplay()) {
    std::fprintf(stderr,
                 "solvanta: no display found (DISPLAY and WAYLAND_DISPLAY are unset).\n"
                 "  To see the screens without one: solvanta --screenshot DIR\n"
                 "  To scan from the terminal:      solvanta scan --library DIR\n");
    return 3;
  }

  desktop::AppFolders folders = desktop::AppFolders::fromEnvironment();
  std::string library = options->library;

  // One media backend for the ads' player, the previews' player and the camera view.
  desktop::chooseMediaBackend();
  int argc = 1;
  char* argv[] = {const_cast<char*>(programName), nullptr};
  QGuiApplication qt(argc, argv);
  qt.setApplicationName("Solvanta");
  // A URL for an app that is already running goes to it, and this start ends there.
  if (!openURL.empty() && handOverURL(openURL)) return 0;
  kit::Screen::setMainBounds(kit::makeRect(0, 0, 390, 844));
  GuiApp app;

  desktop::DeploymentConfigLoad deployment = desktop::loadDeploymentConfig(folders);
  if (!deployment.problem.empty()) std::fprintf(stderr, "solvanta: %s\n", deployment.problem.c_str());
  APMLaunchContext::setInfoDictionary(deployment.config.infoPlist);
  ads::AdConfig adConfig = ads::AdConfig::current();
  adConfig.interstitialAdUnitID = deployment.config.interstitialAdUnitID.value_or(adConfig.interstitialAdUnitID);
  adConfig.appOpenAdUnitID = deployment.config.appOpenAdUnitID.value_or(adConfig.appOpenAdUnitID);
  adConfig.bannerAdUnitID = deployment.config.bannerAdUnitID.value_or(adConfig.bannerAdUnitID);
  adConfig.testDeviceIdentifier = deployment.config.testDeviceIdentifier.value_or(adConfig.testDeviceIdentifier);
  ads::AdConfig::setCurrent(adConfig);
  shell::AppLinks links = shell::AppLinks::current();
  links.storeLink = deployment.config.storeLink.value_or(links.storeLink);
  links.promotionLink = deployment.config.promotionLink.value_or(links.promotionLink);
  links.supportAddress = deployment.config.supportAddress.value_or(links.supportAddress);
  shell::AppLinks::setCurrent(links);

  desktop::PlatformOptions platformOptions;
  platformOptions.libraryRoot = library;
  platformOptions.contactsRoot = options->contacts;
  platformOptions.folders = folders;
  platformOptions.houseAds.interstitialCreatives = creatives("interstitial");
  platformOptions.houseAds.bannerCreatives = creatives("banner");
  platformOptions.houseAds.appOpenCreatives = creatives("appopen");
  platformOptions.houseAds.fillRate = deployment.config.houseAdsFillRate;
  platformOptions.houseAds.latencySeconds = deployment.config.houseAdsLatencySeconds;
  if (deployment.config.houseAdsFormat == "video") {
    // Video interstitials: what their script would hear, and their reports, go to the console.
    std::string video = houseVideoFile(folders.cache());
    if (video.empty()) {
      std::fprintf(stderr, "solvanta: the video interstitial could not be written to %s\n", folders.cache().c_str());
    } else {
      auto scriptLog = std::make_shared<adclient::SVAScriptMessageLog>();
      std::string title = platformOptions.houseAds.title;
      platformOptions.houseAds.videoInterstitial = [video, title, scriptLog](const std::string& adUnitID,
                                                                               auto completion) {
        adclient::SVAVideoInterstitialAd::loadWithAdUnitID(
            adUnitID, video, title, scriptLog, 10.0,
            [completion](std::shared_ptr<adclient::SVAVideoInterstitialAd> ad, std::optional<platform::Error> failure) {
              completion(std::move(ad), std::move(failure));
            });
      };
    }
  }
  platformOptions.measurementHost = deployment.config.measurementHost;
  platformOptions.storeLink = links.storeLink;
  platformOptions.permissionPrompt = [&app, library](desktop::PermissionKind kind) {
    if (kind == desktop::PermissionKind::Notifications) {
      int answer = askInWindow(app, "\xE2\x80\x9CSolvanta\xE2\x80\x9D Would Like to Send You Notifications",
                               "Notifications may include alerts, sounds and icon badges.", {"Don't Allow", "Allow"});
      if (answer < 0) return platform::AuthorizationStatus::NotDetermined;
      return answer == 1 ? platform::AuthorizationStatus::Authorized : platform::AuthorizationStatus::Denied;
    }
    if (kind == desktop::PermissionKind::Contacts) {
      int answer = askInWindow(app, "\xE2\x80\x9CSolvanta\xE2\x80\x9D Would Like to Access Your Contacts",
                               "Solvanta lists your address book so that you can hide contacts. Nothing leaves this computer.",
                               {"Don't Allow", "OK"});
      if (answer < 0) return platform::AuthorizationStatus::NotDetermined;
      return answer == 1 ? platform::AuthorizationStatus::Authorized : platform::AuthorizationStatus::Denied;
    }
    int answer = askInWindow(app, "Allow \xE2\x80\x9CSolvanta\xE2\x80\x9D to access your photos?",
                             QString::fromStdString("Solvanta looks for duplicates in " +
                                                    (library.empty() ? std::string("your pictures folder") : library) +
                                                    ". Nothing leaves this computer."),
                             {"Don't Allow", "Allow Access"});
    if (answer < 0) return platform::AuthorizationStatus::NotDetermined;
    return answer == 1 ? platform::AuthorizationStatus::Authorized : platform::AuthorizationStatus::Denied;
  };
  platformOptions.confirmPrompt = [&app](const std::string& question) {
    return askInWindow(app, QString::fromStdString(question), "The files move to the Trash.", {"Don't Allow", "Delete"}) == 1;
  };
  desktop::Platform platform(platformOptions);
  // The camera: the window's camera view over the first camera connected.
  app.camera().setFolder(QString::fromStdString(folders.cache() + "/Camera"));
  platform.camera().setHandlers(&gui::CameraBridge::available, [&app](std::function<void(desktop::CameraFiles)> done) {
    app.camera().openView([done](const QString& photo, const QString& movie) {
      done({photo.toStdString(), movie.toStdString()});
    });
  });
  // "Save to…" offers the person's usual folders.
  platform.fileExport().setChooser([&app, folders](int count, std::function<void(std::optional<std::string>)> chosen) {
    std::vector<std::pair<QString, std::string>> places = {{"Pictures", desktop::picturesDirectory(folders)},
                                                           {"Home", folders.home}};
    QStringList buttons{"Cancel"};
    for (const auto& place : places) buttons << place.first;
    app.bridge().ask(QString("Save to\u2026"), QString("Where should the %1 file(s) go?").arg(count), buttons,
                     [places, chosen](int index) {
                       if (index >= 1 && index <= static_cast<int>(places.size())) chosen(places[index - 1].second);
                       else chosen(std::nullopt);
                     });
  });

  if (!app.start()) {
    std::fprintf(stderr, "solvanta: the window could not be loaded\n");
    return 3;
  }
  postLifecycle(qt);
  followWindowVisibility(*app.window());
  if (!openURL.empty()) APMAnalytics::handleOpenURL(openURL);
  QLocalServer urlServer;
  listenForURLs(urlServer, app.window());
  int status = qt.exec();
  app.close();
  return status;
}

}  // namespace gui

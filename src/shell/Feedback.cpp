#include "shell/Feedback.h"

#include <algorithm>

#include <mutex>
#include <utility>

#include "kit/Console.h"
#include "kit/Dispatch.h"
#include "platform/Platform.h"

namespace shell {

namespace {

std::mutex& linksMutex() {
  static std::mutex mu;
  return mu;
}

AppLinks& linksInForce() {
  static AppLinks links;
  return links;
}

const char* const kModels[][2] = {
    {"iPod5,1", "iPod Touch 5"}, {"iPod7,1", "iPod Touch 6"},
    {"iPhone3,1", "iPhone 4"}, {"iPhone3,2", "iPhone 4"}, {"iPhone3,3", "iPhone 4"},
    {"iPhone4,1", "iPhone 4s"},
    {"iPhone5,1", "iPhone 5"}, {"iPhone5,2", "iPhone 5"},
    {"iPhone5,3", "iPhone 5c"}, {"iPhone5,4", "iPhone 5c"},
    {"iPhone6,1", "iPhone 5s"}, {"iPhone6,2", "iPhone 5s"},
    {"iPhone7,2", "iPhone 6"}, {"iPhone7,1", "iPhone 6 Plus"},
    {"iPhone8,1", "iPhone 6s"}, {"iPhone8,2", "iPhone 6s Plus"},
    {"iPhone9,1", "iPhone 7"}, {"iPhone9,3", "iPhone 7"},
    {"iPhone9,2", "iPhone 7 Plus"}, {"iPhone9,4", "iPhone 7 Plus"},
    {"iPhone8,4", "iPhone SE"},
    {"iPhone10,1", "iPhone 8"}, {"iPhone10,4", "iPhone 8"},
    {"iPhone10,2", "iPhone 8 Plus"}, {"iPhone10,5", "iPhone 8 Plus"},
    {"iPhone10,3", "iPhone X"}, {"iPhone10,6", "iPhone X"},
    {"iPhone11,2", "iPhone XS"},
    {"iPhone11,4", "iPhone XS Max"}, {"iPhone11,6", "iPhone XS Max"},
    {"iPhone11,8", "iPhone XR"},
    {"iPhone12,1", "iPhone 11"}, {"iPhone12,3", "iPhone 11 Pro"}, {"iPhone12,5", "iPhone 11 Pro Max"},
    {"iPad2,1", "iPad 2"}, {"iPad2,2", "iPad 2"}, {"iPad2,3", "iPad 2"}, {"iPad2,4", "iPad 2"},
    {"iPad3,1", "iPad 3"}, {"iPad3,2", "iPad 3"}, {"iPad3,3", "iPad 3"},
    {"iPad3,4", "iPad 4"}, {"iPad3,5", "iPad 4"}, {"iPad3,6", "iPad 4"},
    {"iPad4,1", "iPad Air"}, {"iPad4,2", "iPad Air"}, {"iPad4,3", "iPad Air"},
    {"iPad5,3", "iPad Air 2"}, {"iPad5,4", "iPad Air 2"},
    {"iPad6,11", "iPad 5"}, {"iPad6,12", "iPad 5"},
    {"iPad7,5", "iPad 6"}, {"iPad7,6", "iPad 6"},
    {"iPad2,5", "iPad Mini"}, {"iPad2,6", "iPad Mini"}, {"iPad2,7", "iPad Mini"},
    {"iPad4,4", "iPad Mini 2"}, {"iPad4,5", "iPad Mini 2"}, {"iPad4,6", "iPad Mini 2"},
    {"iPad4,7", "iPad Mini 3"}, {"iPad4,8", "iPad Mini 3"}, {"iPad4,9", "iPad Mini 3"},
    {"iPad5,1", "iPad Mini 4"}, {"iPad5,2", "iPad Mini 4"},
    {"iPad6,3", "iPad Pro 9.7 Inch"}, {"iPad6,4", "iPad Pro 9.7 Inch"},
    {"iPad6,7", "iPad Pro 12.9 Inch"}, {"iPad6,8", "iPad Pro 12.9 Inch"},
    {"iPad7,1", "iPad Pro (12.9-inch) (2nd generation)"}, {"iPad7,2", "iPad Pro (12.9-inch) (2nd generation)"},
    {"iPad7,3", "iPad Pro (10.5-inch)"}, {"iPad7,4", "iPad Pro (10.5-inch)"},
    {"iPad8,1", "iPad Pro (11-inch)"}, {"iPad8,2", "iPad Pro (11-inch)"},
    {"iPad8,3", "iPad Pro (11-inch)"}, {"iPad8,4", "iPad Pro (11-inch)"},
    {"iPad8,5", "iPad Pro (12.9-inch) (3rd generation)"}, {"iPad8,6", "iPad Pro (12.9-inch) (3rd generation)"},
    {"iPad8,7", "iPad Pro (12.9-inch) (3rd generation)"}, {"iPad8,8", "iPad Pro (12.9-inch) (3rd generation)"},
    {"AppleTV5,3", "Apple TV"}, {"AppleTV6,2", "Apple TV 4K"},
    {"AudioAccessory1,1", "HomePod"},
};

const char* const kFeedbackMessage = "Unable to send email. Please check your email settings and try again.";

}  // namespace

AppLinks AppLinks::current() {
  std::lock_guard lock(linksMutex());
  return linksInForce();
}

void AppLinks::setCurrent(AppLinks links) {
  std::lock_guard lock(linksMutex());
  linksInForce() = std::move(links);
}

std::string deviceModelName(const std::string& identifier) {
  for (const auto& entry : kModels) {
    if (identifier == entry[0]) return entry[1];
  }
  return identifier;
}

std::string deviceModelName() {
  // The identifier stops at its first zero character, as a C string does.
  std::string machine = platform::device().machineIdentifier();
  return deviceModelName(machine.substr(0, machine.find('\0')));
}

// ---- Mail ----

bool MailComposeViewController::canSendMail() { return platform::mailComposer().canSendMail(); }

void MailComposeViewController::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  std::string to;
  for (const auto& r : message_.toRecipients) to += (to.empty() ? "" : ", ") + r;
  addOutlet<kit::Label>("toLbl")->setText(to);
  addOutlet<kit::Label>("subjectLbl")->setText(message_.subject);
  addOutlet<kit::Label>("bodyLbl")->setText(message_.body);
}

void MailComposeViewController::viewDidAppear(bool) {
  if (handedOver_) return;
  handedOver_ = true;
  auto self = sharedAs<MailComposeViewController>();
  platform::mailComposer().compose(message_, [self](platform::MailComposeResult result) {
    if (auto delegate = self->delegate_.lock()) mailComposeControllerDidFinish(*delegate, *self, result);
  });
}

void mailComposeControllerDidFinish(kit::ViewController& controller, MailComposeViewController& composer,
                                    platform::MailComposeResult result) {
  kit::print("result", static_cast<int>(result));
  if (result != platform::MailComposeResult::Failed) {
    composer.dismissViewControllerAnimated(true);
    return;
  }
  auto presenter = controller.sharedAs<kit::ViewController>();
  composer.dismissViewControllerAnimated(true, [presenter] {
    auto alert = kit::AlertController::make(std::string("Failed"), std::string(kFeedbackMessage), kit::AlertStyle::Alert);
    alert->addAction(std::make_shared<kit::AlertAction>(std::string("OK"), kit::AlertActionStyle::Default));
    presenter->presentViewController(alert, true);
  });
}

void sendFeedback(kit::ViewController& controller, const std::string& subject) {
  auto& device = platform::device();
  const std::string body = std::string("Solvanta") + " <br>Device Brand: " + deviceModelName() +
                           "<br>DeviceName: " + device.name() + " <br>Device Version: " + device.systemVersion();
  auto composer = std::make_shared<MailComposeViewController>();
  composer->setStoryboardOrigin(nullptr, "MailComposeViewController");
  composer->setMailComposeDelegate(controller.sharedAs<kit::ViewController>());
  composer->setToRecipients({AppLinks::current().supportAddress});
  composer->setSubject(subject);
  composer->setMessageBody(body, true);
  if (MailComposeViewController::canSendMail()) {
    controller.presentViewController(composer, true);
    return;
  }
  auto alert = kit::AlertController::make(std::string("Error"), std::string(kFeedbackMessage), kit::AlertStyle::Alert);
  alert->addAction(std::make_shared<kit::AlertAction>(std::string("ok"), kit::AlertActionStyle::Default));
  controller.presentViewController(alert, true);
}

// ---- Sharing ----

std::string percentEncoded(const std::string& text) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
        c == '.' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

namespace {

std::string joined(const std::vector<std::string>& items, const char* separator) {
  std::string out;
  for (const auto& item : items) out += (out.empty() ? "" : separator) + item;
  return out;
}

}  // namespace

ActivityViewController::ActivityViewController(std::vector<std::string> activityItems)
    : kit::AlertController(std::string("Share"), joined(activityItems, "\n"), kit::AlertStyle::ActionSheet),
      items_(std::move(activityItems)) {
  setStoryboardOrigin(nullptr, "ActivityViewController");
  auto finish = [this](bool completed) {
    if (completionWithItemsHandler) completionWithItemsHandler(completed);
  };
  bool files = !items_.empty() && std::all_of(items_.begin(), items_.end(), [](const std::string& item) {
    return platform::pathOfFileURL(item).has_value();
  });
  if (files) {
    addAction(std::make_shared<kit::AlertAction>(
        std::string("Save to\u2026"), kit::AlertActionStyle::Default, [this](kit::AlertAction&) {
          auto items = items_;
          auto done = completionWithItemsHandler;
          platform::fileExport().chooseFolder(static_cast<int>(items.size()),
                                              [items, done](std::optional<std::string> folder) {
                                                if (folder) saveFilesToFolder(items, *folder);
                                                if (done) done(folder.has_value());
                                              });
        }));
    addAction(std::make_shared<kit::AlertAction>(
        std::string("Show in Folder"), kit::AlertActionStyle::Default, [this, finish](kit::AlertAction&) {
          std::string path = *platform::pathOfFileURL(items_.front());
          platform::application().openURL(platform::fileURLWithPath(path.substr(0, path.find_last_of('/'))), {}, {});
          finish(true);
        }));
  }
  addAction(std::make_shared<kit::AlertAction>(std::string("Copy"), kit::AlertActionStyle::Default,
                                               [this, finish](kit::AlertAction&) {
                                                 platform::pasteboard().setString(joined(items_, "\n"));
                                                 finish(true);
                                               }));
  addAction(std::make_shared<kit::AlertAction>(
      std::string("Mail"), kit::AlertActionStyle::Default, [this, finish](kit::AlertAction&) {
        platform::application().openURL("mailto:?subject=Solvanta&body=" + percentEncoded(joined(items_, "\n")), {}, {});
        finish(true);
      }));
  addAction(std::make_shared<kit::AlertAction>(std::string("Cancel"), kit::AlertActionStyle::Cancel,
                                               [finish](kit::AlertAction&) { finish(false); }));
}

int saveFilesToFolder(const std::vector<std::string>& fileURLs, const std::string& folder) {
  auto& files = platform::fileManager();
  int saved = 0;
  for (const auto& url : fileURLs) {
    auto source = platform::pathOfFileURL(url);
    if (!source) continue;
    platform::Error error;
    auto data = files.contentsAtPath(*source, &error);
    std::string name = source->substr(source->find_last_of('/') + 1);
    std::string target = folder + "/" + name;
    for (int n = 2; files.fileExistsAtPath(target); ++n) target = folder + "/" + name + " " + std::to_string(n);
    if (!data || !files.writeData(*data, target, &error)) {
      kit::print("Could not save", name + ":", platform::describe(error));
      continue;
    }
    ++saved;
  }
  kit::print("Saved", saved, "files to", folder);
  return saved;
}

void shareApp(kit::ViewController& controller, const std::string& url, const std::string& message) {
  auto sheet = std::make_shared<ActivityViewController>(std::vector<std::string>{message, url});
  sheet->completionWithItemsHandler = [](bool) {};
  kit::View& v = controller.view();
  sheet->popoverSourceView = &v;
  sheet->popoverSourceRect = kit::Rect{{v.bounds().origin.x + v.frame().width() / 2, v.bounds().origin.y}, {0, 0}};
  controller.presentViewController(sheet, true);
}

void openPromotionLink() { platform::application().openURL(AppLinks::current().promotionLink, {}, {}); }

}  // namespace shell

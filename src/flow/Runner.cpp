#include "flow/Runner.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "adclient/SVAScriptMessageLog.h"
#include "adclient/SVAVideoInterstitialAd.h"
#include "cli/MeasurementCommand.h"
#include "flow/FrontScreen.h"
#include "kit/Console.h"
#include "kit/Controls.h"
#include "kit/Fatal.h"
#include "kit/GestureRecognizer.h"
#include "kit/ApplicationNotifications.h"
#include "kit/NavigationController.h"
#include "kit/NotificationCenter.h"
#include "kit/ProgressHUD.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "measurement/events/APMMeasurement.h"
#include "platform/Platform.h"
#include "shell/AppDelegate.h"
#include "shell/MainStoryboard.h"
#include "sim/World.h"

namespace flow {

namespace {

// A command that did not do or find what it should; the message says what was expected and
// what was found.
struct Failure {
  std::string message;
};

[[noreturn]] void fail(std::string message) { throw Failure{std::move(message)}; }

// Seconds as a person writes them: "3", "2.5".
std::string seconds(double s) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", s);
  return text;
}

std::string quoted(const std::string& s) { return "\"" + s + "\""; }

std::string list(const std::vector<std::string>& items, std::size_t most = 40) {
  std::string s = "[";
  for (std::size_t i = 0; i < items.size() && i < most; ++i) s += (i ? ", " : "") + items[i];
  if (items.size() > most) s += ", ...";
  return s + "]";
}

// How many bytes the UTF-8 character that starts with `lead` takes.
std::size_t utf8Length(unsigned char lead) {
  if (lead >= 0xF0) return 4;
  if (lead >= 0xE0) return 3;
  if (lead >= 0xC0) return 2;
  return 1;
}

// Length of `s` in UTF-16 code units, as text fields count.
std::size_t utf16Length(const std::string& s) {
  std::size_t n = 0;
  for (unsigned char c : s) {
    if ((c & 0xC0) != 0x80) n += c >= 0xF0 ? 2 : 1;
  }
  return n;
}

// `s` without its last character (UTF-8), and that character's UTF-16 length.
std::pair<std::string, std::size_t> dropLast(const std::string& s) {
  std::size_t at = s.size();
  while (at > 0 && (static_cast<unsigned char>(s[at - 1]) & 0xC0) == 0x80) --at;
  if (at > 0) --at;
  return {s.substr(0, at), static_cast<unsigned char>(s[at]) >= 0xF0 ? 2u : 1u};
}

bool flag(const YAML::Node& sel, const char* key, bool* value) {
  if (!sel.IsMap() || !sel[key]) return false;
  *value = sel[key].Scalar() == "true";
  return true;
}

// What a selector found: a view (a cell of a list, with its list and position, or any view).
struct Target {
  kit::View* view = nullptr;
  kit::ListView* list = nullptr;
  kit::IndexPath path;
  std::string what;  // for messages
};

// The result of looking for a selector on the screen.
struct Probe {
  bool found = false;    // visible and matching
  bool unknown = false;  // names an outlet the screen does not have
  std::string detail;    // what was found instead
};

// A folder of the run's own under the system's temporary folder, removed with everything in it
// when the run ends: the simulated phone's application-support folder, where the measurement
// client keeps its database.
class RunFolder {
 public:
  RunFolder() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/solvanta-flow-run-XXXXXX";
    if (const char* made = ::mkdtemp(pattern.data())) path_ = made;
  }
  ~RunFolder() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  RunFolder(const RunFolder&) = delete;
  RunFolder& operator=(const RunFolder&) = delete;
  // Empty when the folder could not be made.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class Run {
 public:
  Run(const Flow& flow, const RunOptions& options)
      : flow_(flow), options_(options), world_(flow.world.now) {
    previousFatal_ = kit::setFatalHandler(kit::throwingFatalHandler);
    if (!folder_.path().empty()) world_.platform.files().setApplicationSupportPath(folder_.path() + "/Application Support");
    flow.world.applyTo(world_);
    // Video interstitials play the house clip; what their script hears goes to the console.
    world_.platform.ads().setVideoInterstitialLoader([this](const std::string& adUnitID, auto completion) {
      adclient::SVAVideoInterstitialAd::loadWithAdUnitID(
          adUnitID, kVideoInterstitialURL, "Sim video interstitial", adScript_, 10.0,
          [completion](std::shared_ptr<adclient::SVAVideoInterstitialAd> ad, std::optional<platform::Error> error) {
            completion(std::move(ad), std::move(error));
          });
    });
    start_ = world_.env.now();
    toastToken_ = kit::ToastManager::shared().addObserver([this](std::string_view) { noteToasts(); });
  }

  ~Run() {
    kit::ToastManager::shared().removeObserver(toastToken_);
    kit::setFatalHandler(previousFatal_);
  }

  FlowResult run() {
    FlowResult result;
    try {
      runSteps(flow_.steps, result);
    } catch (const Stop&) {
      result.passed = false;
    }
    result.virtualTime = world_.env.now() - start_;
    return result;
  }

 private:
  struct Stop {};

  void runSteps(const std::vector<Step>& steps, FlowResult& result) {
    for (const auto& step : steps) runStep(step, result);
  }

  void runStep(const Step& step, FlowResult& result) {
    StepReport report;
    report.file = step.file;
    report.line = step.line;
    report.command = step.command;
    try {
      if (++result.commands > kCommandCap) {
        fail("the flow ran more than " + std::to_string(kCommandCap) + " commands");
      }
      report.message = perform(step, result);
    } catch (const Failure& f) {
      report.ok = false;
      report.message = f.message;
    } catch (const kit::FatalError& e) {
      report.ok = false;
      report.message = std::string("the app ended with a fatal error: ") + e.what();
    }
    if (!report.ok && result.passed) {
      result.passed = false;
      result.failure = report;
      result.failure.virtualTime = world_.env.now() - start_;
      result.screen = screenJson();
    }
    report.virtualTime = world_.env.now() - start_;
    // A container's failure was reported by the command inside it.
    if (options_.onStep && (report.ok || !(step.command == "repeat" || step.command == "runFlow"))) {
      options_.onStep(report);
    }
    if (!report.ok) throw Stop{};
  }

  // --- Settling ---

  void settle() {
    kit::runLayoutPass();
    long ran = 0;
    for (;;) {
      bool any = false;
      while (world_.env.runMainOnce()) {
        any = true;
        if (++ran > kTaskCap) tooBusy();
      }
      if (!holdBackground_ && world_.env.runBackgroundOnce()) {
        any = true;
        if (++ran > kTaskCap) tooBusy();
      }
      if (!any && !answerQuestions()) break;
    }
  }

  [[noreturn]] void tooBusy() {
    fail("the app never went idle: more than " + std::to_string(kTaskCap) + " tasks ran without the clock moving");
  }

  // Answers the platform's waiting questions as the world says; true when it answered one.
  bool answerQuestions() {
    auto& book = world_.platform.contacts();
    if (book.pendingAccessRequests() > 0 && flow_.world.contactsAnswer != Answer::Never) {
      book.answerAccess(flow_.world.contactsAnswer == Answer::Allow ? platform::AuthorizationStatus::Authorized
                                                                    : platform::AuthorizationStatus::Denied);
      return true;
    }
    auto& photos = world_.platform.photos();
    if (photos.pendingAuthorizationRequests() == 0 || flow_.world.photosAnswer == Answer::Never) return false;
    photos.answerAuthorization(flow_.world.photosAnswer == Answer::Allow ? platform::AuthorizationStatus::Authorized
                                                                         : platform::AuthorizationStatus::Denied);
    return true;
  }

  void advance(double seconds) {
    if (advanced_ + seconds > kVirtualTimeCap + 1e-9) {
      fail("the flow would move its clock past " + std::to_string(static_cast<int>(kVirtualTimeCap)) +
           " virtual seconds in all");
    }
    advanced_ += seconds;
    world_.env.advance(seconds);
    settle();
  }

  // --- Reading the screen ---

  void noteToasts() {
    for (const auto& toast : kit::ToastManager::shared().activeToasts()) {
      if (seenToasts_.insert(toast.id).second) recentToasts_.push_back(toast.message.value_or(""));
    }
  }

  nlohmann::json screenJson() const {
    nlohmann::json j = FrontScreen(window_).toJson();
    nlohmann::json toasts = nlohmann::json::array();
    for (const auto& t : kit::ToastManager::shared().activeToasts()) toasts.push_back(t.message.value_or(""));
    if (!toasts.empty()) j["toasts"] = toasts;
    auto& hud = kit::ProgressHUD::shared();
    if (hud.isVisible()) j["hud"] = hud.message().value_or("");
    return j;
  }

  void needLaunch() const {
    if (!window_) fail("the app is not running (launchApp first)");
  }

  // Finds a selector's view: `id` (with `index` or `section`/`row` for a cell of that list)
  // among the outlets of the front-most screen, or of the cell `in` names.
  Target resolveId(const YAML::Node& sel, const FrontScreen& screen) {
    const std::string id = sel["id"].Scalar();
    kit::OutletContainer* scope = screen.controller();
    std::string scopeName = screen.identifier();
    if (sel["in"]) {
      Target cell = resolve(sel["in"], screen);
      auto* container = dynamic_cast<kit::ListCell*>(cell.view);
      if (!container) fail("in: expected a cell of a list, found " + cell.what);
      scope = container;
      scopeName = cell.what;
    }
    if (!scope || screen.alert()) fail("no outlet '" + id + "': an alert is in front");
    auto object = scope->findOutlet(id);
    auto* view = dynamic_cast<kit::View*>(object.get());
    if (!view) {
      std::vector<std::string> names;
      for (const auto& [name, o] : scope->outlets()) {
        if (dynamic_cast<kit::View*>(o.get())) names.push_back(name);
      }
      fail("no outlet '" + id + "' on " + scopeName + " (outlets: " + list(names, 100) + ")");
    }
    Target t{view, nullptr, {}, scopeName + "." + id};
    if (!sel["index"] && !sel["section"] && !sel["row"]) return t;
    auto* listView = dynamic_cast<kit::ListView*>(view);
    if (!listView) fail("'" + id + "' is not a list, so it has no index, section or row");
    const auto cells = listView->visibleCells();
    const auto paths = listView->indexPathsForVisibleItems();
    if (sel["index"]) {
      const long index = sel["index"].as<long>();
      if (index >= static_cast<long>(cells.size())) {
        fail(id + " index " + std::to_string(index) + ": the list shows " + std::to_string(cells.size()) + " cells");
      }
      return Target{cells[static_cast<std::size_t>(index)].get(), listView, paths[static_cast<std::size_t>(index)],
                    t.what + "[" + std::to_string(index) + "]"};
    }
    kit::IndexPath path{sel["section"] ? sel["section"].as<int>() : 0, sel["row"] ? sel["row"].as<int>() : 0};
    auto cell = listView->cellAtIndexPath(path);
    if (!cell) {
      fail(id + " section " + std::to_string(path.section) + " row " + std::to_string(path.row) +
           ": no such cell is shown (the list shows " + std::to_string(cells.size()) + " cells)");
    }
    return Target{cell.get(), listView, path,
                  t.what + "[" + std::to_string(path.section) + "," + std::to_string(path.row) + "]"};
  }

  // The one element showing `text` that a person can tap (or, when `tappable` is false, the
  // one showing it), under `within` when given.
  const Element& byText(const std::string& text, const FrontScreen& screen, bool tappable, const kit::View* within) {
    std::vector<const Element*> shown;
    for (const Element* e : screen.showing(text)) {
      if (within && (!e->view || !e->view->isDescendantOf(*within))) continue;
      shown.push_back(e);
    }
    std::vector<const Element*> candidates;
    for (const Element* e : shown) {
      if (!tappable || e->tappable) candidates.push_back(e);
    }
    if (candidates.size() == 1) return *candidates.front();
    std::vector<std::string> names;
    if (candidates.empty()) {
      for (const Element* e : shown) names.push_back(describe(*e));
      if (!shown.empty()) fail("expected something to tap showing " + quoted(text) + ", found only " + list(names));
      std::vector<std::string> texts;
      for (const auto& t : screen.texts()) texts.push_back(quoted(t));
      fail("expected a visible element showing " + quoted(text) + " on " + screen.identifier() + ", found none; shown: " +
           list(texts));
    }
    for (const Element* e : candidates) names.push_back(describe(*e));
    fail("expected one element showing " + quoted(text) + ", found " + std::to_string(candidates.size()) + ": " +
         list(names) + " (select by id)");
  }

  Target resolve(const YAML::Node& sel, const FrontScreen& screen) {
    if (sel.IsScalar() || !sel["id"]) {
      const std::string text = sel.IsScalar() ? sel.Scalar() : sel["text"].Scalar();
      const kit::View* within = nullptr;
      if (sel.IsMap() && sel["in"]) within = resolve(sel["in"], screen).view;
      const Element& e = byText(text, screen, false, within);
      return Target{e.view, nullptr, {}, describe(e)};
    }
    return resolveId(sel, screen);
  }

  // Whether the selector matches something visible, with its text, enabled and selected
  // conditions.
  Probe probe(const YAML::Node& sel) {
    FrontScreen screen(window_);
    Probe p;
    const std::string text = sel.IsScalar() ? sel.Scalar() : sel["text"] ? sel["text"].Scalar() : "";
    const bool hasText = sel.IsScalar() || sel["text"];
    bool wantEnabled = false, wantSelected = false;
    const bool checkEnabled = flag(sel, "enabled", &wantEnabled);
    const bool checkSelected = flag(sel, "selected", &wantSelected);
    auto conditions = [&](const Element& e) {
      return (!checkEnabled || e.enabled == wantEnabled) && (!checkSelected || e.selected == wantSelected);
    };
    if (sel.IsScalar() || !sel["id"]) {
      const kit::View* within = nullptr;
      if (sel.IsMap() && sel["in"]) {
        try {
          within = resolve(sel["in"], screen).view;
        } catch (const Failure& f) {
          p.detail = f.message;
          return p;
        }
      }
      std::vector<std::string> others;
      for (const Element* e : screen.showing(text)) {
        if (within && (!e->view || !e->view->isDescendantOf(*within))) continue;
        if (conditions(*e)) {
          p.found = true;
          p.detail = describe(*e);
          return p;
        }
        others.push_back(describe(*e));
      }
      if (!others.empty()) {
        p.detail = list(others);
      } else {
        std::vector<std::string> texts;
        for (const auto& t : screen.texts()) texts.push_back(quoted(t));
        p.detail = "no such text on " + screen.identifier() + "; shown: " + list(texts);
      }
      return p;
    }
    Target t;
    try {
      t = resolveId(sel, screen);
    } catch (const Failure& f) {
      p.unknown = f.message.rfind("no outlet", 0) == 0 || f.message.find("is not a list") != std::string::npos;
      p.detail = f.message;
      return p;
    }
    const Element* e = screen.elementOf(t.view);
    if (!e) {
      p.detail = t.what + " is hidden (or under a hidden view)";
      return p;
    }
    p.detail = describe(*e);
    if (hasText && (!e->text || *e->text != text)) return p;
    p.found = conditions(*e);
    return p;
  }

  // --- Commands ---

  std::string perform(const Step& step, FlowResult& result) {
    const std::string& c = step.command;
    const YAML::Node& a = step.argument;
    static const std::set<std::string> acts = {"launchApp", "tapOn",   "longPressOn",     "inputText",      "eraseText",
                                               "back",      "advance", "enterBackground", "enterForeground", "answerPrompt",
                                               "changeSettings"};
    if (acts.count(c)) recentToasts_.clear();

    if (c == "launchApp") return launch(a);
    if (c == "repeat") {
      for (int i = 0; i < step.times; ++i) runSteps(step.steps, result);
      return "ran " + std::to_string(step.times) + " times";
    }
    if (c == "runFlow") {
      runSteps(step.steps, result);
      return "ran " + a.Scalar();
    }
    if (c == "backgroundWork") {
      holdBackground_ = a.Scalar() == "hold";
      settle();
      return {};
    }
    if (c == "advance") {
      advance(a.as<double>());
      return {};
    }
    if (c == "assertPreference") return assertPreference(a);
    if (c == "assertEvent") return assertEvent(a);
    if (c == "assertRawEvents") return assertRawEvents(a.as<long>());
    if (c == "assertLibrary") return assertLibrary(a);
    if (c == "assertConsole") return assertConsole(a.Scalar());
    if (c == "assertHud") {
      auto& hud = kit::ProgressHUD::shared();
      std::string found = hud.isVisible() ? hud.message().value_or("") : "none";
      if (found != a.Scalar()) fail("expected the progress HUD " + quoted(a.Scalar()) + ", found " + (quoted)(found));
      return {};
    }
    if (c == "assertToast") {
      for (const auto& t : recentToasts_) {
        if (t == a.Scalar()) return {};
      }
      std::vector<std::string> shown;
      for (const auto& t : recentToasts_) shown.push_back(quoted(t));
      fail("expected the toast " + quoted(a.Scalar()) + ", found " + (shown.empty() ? "no toast" : list(shown)));
    }
    if (c == "assertAd") return assertAd(a["shown"].Scalar());
    if (c == "assertAdLoads") return assertAdLoads(a);
    if (c == "assertOpened") {
      auto urls = world_.platform.application().openedURLs();
      if (urls.empty() || urls.back().rfind(a.Scalar(), 0) != 0) {
        fail("expected the app to have opened " + quoted(a.Scalar()) + ", found " + (urls.empty() ? "none" : (quoted)(urls.back())));
      }
      return urls.back();
    }
    if (c == "assertPasteboard") {
      std::string found = world_.platform.pasteboard().string();
      if (found != a.Scalar()) fail("expected the pasteboard to hold " + quoted(a.Scalar()) + ", found " + (quoted)(found));
      return {};
    }
    if (c == "changeSettings") {
      // The person switches the app's access in the system's settings while it runs.
      auto status = [&](const char* key) {
        return a[key].Scalar() == "authorized" ? platform::AuthorizationStatus::Authorized
                                               : platform::AuthorizationStatus::Denied;
      };
      if (a["photos"]) world_.platform.photos().setStatus(status("photos"));
      if (a["contacts"]) world_.platform.contacts().setStatus(status("contacts"));
      return {};
    }
    if (c == "answerPrompt") {
      auto& photos = world_.platform.photos();
      auto& book = world_.platform.contacts();
      if (photos.pendingAuthorizationRequests() == 0 && book.pendingAccessRequests() > 0) {
        book.answerAccess(a.Scalar() == "allow" ? platform::AuthorizationStatus::Authorized
                                                : platform::AuthorizationStatus::Denied);
        settle();
        return {};
      }
      if (photos.pendingAuthorizationRequests() == 0) fail("expected a question of the platform, found none waiting");
      photos.answerAuthorization(a.Scalar() == "allow" ? platform::AuthorizationStatus::Authorized
                                                       : platform::AuthorizationStatus::Denied);
      settle();
      return {};
    }

    needLaunch();
    if (c == "tapOn") return tapOn(a);
    if (c == "longPressOn") return longPressOn(a);
    if (c == "inputText") return inputText(a);
    if (c == "eraseText") return eraseText(a.as<int>());
    if (c == "back") return back();
    if (c == "enterBackground" || c == "enterForeground") {
      // As the window does: the app resigns active and goes to the background, or comes back
      // and becomes active; the lifecycle's observers hear of it.
      auto& app = platform::application();
      auto& center = kit::NotificationCenter::defaultCenter();
      if (c == "enterBackground") {
        center.postNotificationName(kit::kApplicationWillResignActiveNotification);
        app.enterBackground();
        center.postNotificationName(kit::kApplicationDidEnterBackgroundNotification);
      } else {
        app.enterForeground();
        center.postNotificationName(kit::kApplicationDidBecomeActiveNotification);
      }
      settle();
      return {};
    }
    if (c == "assertVisible" || c == "assertNotVisible") {
      Probe p = probe(a);
      if (p.unknown) fail(p.detail);
      if (c == "assertVisible" && !p.found) fail("expected " + selectorText(a) + " to be visible, found " + p.detail);
      if (c == "assertNotVisible" && p.found) fail("expected " + selectorText(a) + " not to be visible, found " + p.detail);
      return p.detail;
    }
    if (c == "waitFor") return waitFor(a);
    if (c == "assertScreen") {
      std::string found = FrontScreen(window_).identifier();
      if (found != a.Scalar()) fail("expected the screen " + a.Scalar() + ", found " + found);
      return {};
    }
    if (c == "assertAlert") return assertAlert(a);
    if (c == "takeScreenshot") return screenshot(a.Scalar());
    if (c == "dump") {
      if (options_.dumpOut) {
        std::string text = screenJson().dump(2) + "\n";
        std::fwrite(text.data(), 1, text.size(), options_.dumpOut);
      }
      return {};
    }
    fail("the command " + c + " is not available");
  }

  static std::string selectorText(const YAML::Node& sel) {
    if (sel.IsScalar()) return quoted(sel.Scalar());
    YAML::Emitter out;
    out << YAML::Flow << sel;
    return out.c_str();
  }

  std::string launch(const YAML::Node& a) {
    if (window_) fail("the app is already running");
    if (!a.IsMap()) {
      // The real start: the entry routine, AppDelegate's launch, the splash; then, as the
      // window does, the lifecycle's observers hear that the app launched and is active.
      window_ = shell::applicationMain();
      auto& center = kit::NotificationCenter::defaultCenter();
      center.postNotificationName(kit::kApplicationDidFinishLaunchingNotification);
      center.postNotificationName(kit::kApplicationDidBecomeActiveNotification);
      settle();
      return {};
    }
    shell::registerMainStoryboard();
    auto& board = kit::Storyboard::named("Main");
    std::string identifier = a["screen"].Scalar();
    if (!board.hasScene(identifier)) {
      fail("no screen " + identifier + " in the storyboard (screens: " + list(board.identifiers()) + ")");
    }
    auto root = std::make_shared<kit::NavigationController>(board.instantiateViewControllerWithIdentifier(identifier));
    window_ = kit::make<kit::Window>(kit::Screen::mainBounds());
    platform::application().addWindow(window_);
    window_->setRootViewController(root);
    window_->makeKeyAndVisible();
    settle();
    return {};
  }

  std::string tapOn(const YAML::Node& sel) {
    FrontScreen screen(window_);
    if (auto* alert = screen.alert()) {
      const std::string text = sel.IsScalar() ? sel.Scalar() : sel["text"] ? sel["text"].Scalar() : "";
      const Element& e = byText(text, screen, true, nullptr);
      if (e.view) {
        if (!kit::tap(*e.view)) fail(describe(e) + " did not take the tap");
      } else if (!alert->chooseActionTitled(text)) {
        fail("the alert's action " + quoted(text) + " did not take the tap");
      }
      settle();
      return describe(e);
    }
    Target t;
    if (sel.IsScalar() || !sel["id"]) {
      const kit::View* within = nullptr;
      if (sel.IsMap() && sel["in"]) within = resolve(sel["in"], screen).view;
      const std::string text = sel.IsScalar() ? sel.Scalar() : sel["text"].Scalar();
      if (auto cell = cellShowing(text, screen, within)) {
        t = *cell;
      } else {
        const Element& e = byText(text, screen, true, within);
        t = Target{e.view, nullptr, {}, describe(e)};
      }
    } else {
      t = resolveId(sel, screen);
    }
    const Element* e = screen.elementOf(t.view);
    if (!e) fail("expected " + t.what + " to be visible to tap it, found it hidden");
    if (t.list) {
      if (auto* table = dynamic_cast<kit::TableView*>(t.list)) {
        table->userSelectRow(t.path);
      } else if (auto* collection = dynamic_cast<kit::CollectionView*>(t.list)) {
        collection->userSelectItem(t.path);
      }
      kit::runLayoutPass();
    } else if (auto* sw = dynamic_cast<kit::Switch*>(t.view)) {
      if (!kit::toggle(*sw)) fail("expected " + t.what + " to take a tap, but it is disabled or takes no touches");
    } else if (!kit::tap(*t.view)) {
      fail("expected " + t.what + " to take a tap, but it is disabled or takes no touches");
    }
    settle();
    return t.what;
  }

  // The cell of a list that shows `text` in a label of its own, when nothing that takes taps
  // shows that text: a person taps such a cell (a key of a keypad, a row of a table).
  std::optional<Target> cellShowing(const std::string& text, const FrontScreen& screen, const kit::View* within) {
    std::vector<Target> cells;
    for (const Element* e : screen.showing(text)) {
      if (!e->view || (within && !e->view->isDescendantOf(*within))) continue;
      if (e->tappable) return std::nullopt;
      auto* cell = e->view->ancestorOfType<kit::ListCell>();
      auto* list = cell ? dynamic_cast<kit::ListView*>(cell->superview()) : nullptr;
      auto path = list ? list->indexPathForCell(*cell) : std::nullopt;
      if (!path) continue;
      cells.push_back(Target{cell, list, *path, describe(*e)});
    }
    if (cells.size() != 1) return std::nullopt;
    return cells.front();
  }

  std::string longPressOn(const YAML::Node& sel) {
    FrontScreen screen(window_);
    Target t = resolve(sel, screen);
    if (!screen.elementOf(t.view)) fail("expected " + t.what + " to be visible to press it, found it hidden");
    // The press lands on the middle of the view; a view with no long press of its own passes
    // it to the nearest enclosing view that has one (a row of a list to its list).
    kit::Point at{t.view->bounds().width() / 2, t.view->bounds().height() / 2};
    for (kit::View* v = t.view; v; v = v->superview()) {
      for (const auto& g : v->gestureRecognizers()) {
        if (dynamic_cast<kit::LongPressGestureRecognizer*>(g.get()) && g->isEnabled()) {
          g->recognize(kit::GestureState::Began, at);
          g->recognize(kit::GestureState::Ended, at);
          settle();
          return t.what;
        }
      }
      kit::Point origin = v->originInSuperview();
      at = kit::Point{at.x + origin.x, at.y + origin.y};
    }
    fail("expected " + t.what + " to take a long press, but it has no long-press gesture");
  }

  kit::TextField* focusedField() {
    FrontScreen screen(window_);
    for (const auto& e : screen.elements()) {
      auto* field = dynamic_cast<kit::TextField*>(e.view);
      if (field && field->isFirstResponder()) return field;
    }
    return nullptr;
  }

  std::string inputText(const YAML::Node& a) {
    kit::TextField* field = nullptr;
    std::string text = a.IsScalar() ? a.Scalar() : a["text"].Scalar();
    if (a.IsMap() && a["id"]) {
      FrontScreen screen(window_);
      Target t = resolveId(a, screen);
      field = dynamic_cast<kit::TextField*>(t.view);
      if (!screen.elementOf(t.view)) fail("expected " + t.what + " to be visible to type into it");
      if (auto* bar = dynamic_cast<kit::SearchBar*>(t.view)) return typeIntoSearchBar(*bar, text);
      if (!field) fail("expected " + t.what + " to be a text field or a search bar");
    } else {
      field = focusedField();
      if (!field) fail("expected a focused text field to type into, found none (name one with {id: ..., text: ...})");
    }
    // One key at a time, as a keyboard types.
    std::size_t at = 0;
    while (at < text.size()) {
      std::size_t n = utf8Length(static_cast<unsigned char>(text[at]));
      field->typeText(text.substr(at, n));
      kit::runLayoutPass();
      settle();
      at += n;
    }
    return {};
  }

  // Types into a search bar one character at a time; each change reaches its delegate.
  std::string typeIntoSearchBar(kit::SearchBar& bar, const std::string& text) {
    bar.becomeFirstResponder();
    std::size_t at = 0;
    while (at < text.size()) {
      std::size_t n = utf8Length(static_cast<unsigned char>(text[at]));
      bar.userSetText(bar.text() + text.substr(at, n));
      kit::runLayoutPass();
      settle();
      at += n;
    }
    return {};
  }

  kit::SearchBar* focusedSearchBar() {
    FrontScreen screen(window_);
    for (const auto& e : screen.elements()) {
      auto* bar = dynamic_cast<kit::SearchBar*>(e.view);
      if (bar && bar->isFirstResponder()) return bar;
    }
    return nullptr;
  }

  std::string eraseText(int count) {
    kit::TextField* field = focusedField();
    if (!field) {
      if (auto* bar = focusedSearchBar()) {
        for (int i = 0; i < count && !bar->text().empty(); ++i) {
          bar->userSetText(dropLast(bar->text()).first);
          kit::runLayoutPass();
          settle();
        }
        return {};
      }
    }
    if (!field) fail("expected a focused text field to erase from, found none");
    for (int i = 0; i < count; ++i) {
      std::string current = field->text().value_or("");
      if (current.empty()) break;
      auto [rest, units] = dropLast(current);
      auto delegate = field->delegate();
      if (delegate && !delegate->shouldChangeCharactersInRange(*field, utf16Length(current) - units, units, "")) continue;
      field->setText(rest);
      field->sendActionsForControlEvents(kit::kControlEventEditingChanged);
      settle();
    }
    return {};
  }

  std::string back() {
    auto* front = frontController(window_->rootViewController().get());
    if (dynamic_cast<kit::AlertController*>(front) || (front && front->presentingViewController())) {
      fail("expected a screen with a back button, found a presented " + FrontScreen(window_).identifier());
    }
    auto* nav = front ? front->navigationController() : nullptr;
    if (!nav || nav->viewControllers().size() < 2 || front->navigationItem().hidesBackButton()) {
      fail("expected a back button, found none (" + FrontScreen(window_).identifier() + " is the first screen)");
    }
    nav->popViewControllerAnimated(true);
    settle();
    return {};
  }

  std::string waitFor(const YAML::Node& a) {
    const double timeout = a["timeout"] ? a["timeout"].as<double>() : 10.0;
    const double step = 0.1;
    double waited = 0;
    std::string last;
    for (;;) {
      if (a["screen"]) {
        last = FrontScreen(window_).identifier();
        if (last == a["screen"].Scalar()) return {};
      } else {
        const bool wantVisible = static_cast<bool>(a["visible"]);
        Probe p = probe(wantVisible ? a["visible"] : a["notVisible"]);
        if (p.unknown) fail(p.detail);
        last = p.detail;
        if (p.found == wantVisible) return "after " + seconds(waited) + " s";
      }
      if (waited + 1e-9 >= timeout) break;
      double next = std::min(step, timeout - waited);
      advance(next);
      waited += next;
    }
    std::string what = a["screen"] ? "the screen " + a["screen"].Scalar()
                       : a["visible"] ? selectorText(a["visible"]) + " to be visible"
                                      : selectorText(a["notVisible"]) + " not to be visible";
    fail("waited " + seconds(timeout) + " virtual seconds for " + what + ", found " + last);
  }

  std::string assertAlert(const YAML::Node& a) {
    auto* alert = FrontScreen(window_).alert();
    if (!alert) fail("expected an alert, found the screen " + FrontScreen(window_).identifier());
    auto check = [&](const char* key, const std::optional<std::string>& found) {
      if (a[key] && found.value_or("") != a[key].Scalar()) {
        fail(std::string("expected the alert's ") + key + " " + quoted(a[key].Scalar()) + ", found " +
             (found ? quoted(*found) : std::string("none")));
      }
    };
    check("title", alert->alertTitle());
    check("message", alert->message());
    if (a["actions"]) {
      std::vector<std::string> expected, found;
      for (const auto& x : a["actions"]) expected.push_back(quoted(x.Scalar()));
      for (const auto& action : alert->actions()) found.push_back(quoted(action->title().value_or("")));
      if (expected != found) fail("expected the actions " + list(expected) + ", found " + list(found));
    }
    return {};
  }

  std::string assertConsole(const std::string& text) {
    const auto lines = console_.lines();
    for (std::size_t i = consoleMark_; i < lines.size(); ++i) {
      if (lines[i].find(text) != std::string::npos) {
        consoleMark_ = i + 1;
        return lines[i];
      }
    }
    std::vector<std::string> recent;
    for (std::size_t i = lines.size() > consoleMark_ + 10 ? lines.size() - 10 : consoleMark_; i < lines.size(); ++i) {
      recent.push_back(quoted(lines[i]));
    }
    fail("expected a console line containing " + quoted(text) + ", found " +
         (recent.empty() ? std::string("no new line") : "among the last: " + list(recent)));
  }

  std::string assertPreference(const YAML::Node& a) {
    const std::string key = a["key"].Scalar();
    kit::Value found = world_.platform.preferences().objectForKey(key);
    kit::Value expected = scalarValue(a["equals"]);
    bool same;
    std::string shown;
    if (expected.isString()) {
      const std::string* s = found.asString();
      same = s ? *s == *expected.asString() : found.isNull() && expected.asString()->empty();
      shown = s ? quoted(*s) : found.isNull() ? "unset" : "a value of another type";
    } else {
      // Unset keys read as zero values.
      double f = found.isNull() ? 0.0 : found.numberAsReal().value_or(std::nan(""));
      same = f == expected.numberAsReal().value_or(std::nan(""));
      if (found.isNull()) shown = "unset (0)";
      else if (found.numberAsReal()) shown = kit::describe(*found.numberAsReal());
      else shown = "a value of another type";
    }
    if (!same) fail("expected " + key + " to equal " + a["equals"].Scalar() + ", found " + shown);
    return {};
  }

  // What the measurement client holds, as `solvanta measurement` reads it: the events waiting in
  // raw_events and those already in bundles.
  nlohmann::json measurementStore() {
    auto measurement = APMMeasurement::sharedInstance();
    if (!measurement) fail("expected the measurement client to be running (the app's launch starts it), found none");
    std::string error;
    auto report = cli::measurementReport(measurement->databasePath(), 0, &error);
    if (!report) fail("expected the measurement store to be readable, found: " + error);
    return *report;
  }

  // An event of the name is recorded (waiting or bundled), with the given parameters among its
  // own; `count` makes the number of such events exact.
  std::string assertEvent(const YAML::Node& a) {
    const std::string name = a.IsScalar() ? a.Scalar() : a["name"].Scalar();
    const bool withParams = a.IsMap() && a["params"];
    const YAML::Node params = withParams ? a["params"] : YAML::Node();
    nlohmann::json store = measurementStore();
    auto matches = [&](const nlohmann::json& event) {
      if (event.value("name", "") != name) return false;
      if (!withParams) return true;
      for (const auto& p : params) {
        const auto& found = event["parameters"];
        const std::string key = p.first.Scalar();
        if (!found.contains(key)) return false;
        const auto& value = found[key];
        const std::string want = p.second.Scalar();
        if (value.is_string() ? value.get<std::string>() != want
                              : !value.is_number() || value.get<double>() != std::strtod(want.c_str(), nullptr)) {
          return false;
        }
      }
      return true;
    };
    long count = 0;
    std::vector<std::string> seen;
    auto look = [&](const nlohmann::json& events) {
      for (const auto& e : events) {
        if (matches(e)) ++count;
        seen.push_back(e.value("name", ""));
      }
    };
    look(store["raw_events"]);
    for (const auto& bundle : store["bundles"]) look(bundle["events"]);
    const bool exact = a.IsMap() && a["count"];
    if (exact ? count != a["count"].as<long>() : count == 0) {
      fail("expected " + (exact ? a["count"].Scalar() : std::string("an")) + " event " + quoted(name) +
           (withParams ? " with " + selectorText(params) : std::string()) + ", found " + std::to_string(count) +
           " among " + list(seen));
    }
    return std::to_string(count) + " " + name;
  }

  std::string assertRawEvents(long expected) {
    nlohmann::json store = measurementStore();
    const long found = static_cast<long>(store["raw_events"].size());
    if (found != expected) {
      fail("expected " + std::to_string(expected) + " events waiting in raw_events, found " + std::to_string(found));
    }
    return {};
  }

  std::string assertLibrary(const YAML::Node& a) {
    auto assets = world_.platform.photos().allAssets();
    auto count = [&](platform::MediaType type) {
      return std::count_if(assets.begin(), assets.end(), [&](const platform::AssetPtr& x) { return x->mediaType() == type; });
    };
    for (auto [key, type] : {std::pair{"photos", platform::MediaType::Image}, std::pair{"videos", platform::MediaType::Video}}) {
      if (a[key] && count(type) != a[key].as<long>()) {
        fail(std::string("expected ") + a[key].Scalar() + " " + key + " in the library, found " + std::to_string(count(type)));
      }
    }
    if (a["deleted"]) {
      std::vector<std::string> expected, found = world_.platform.photos().deletedIdentifiers();
      for (const auto& x : a["deleted"]) expected.push_back(x.Scalar());
      std::sort(expected.begin(), expected.end());
      std::sort(found.begin(), found.end());
      if (expected != found) fail("expected the deleted assets " + list(expected) + ", found " + list(found));
    }
    return {};
  }

  std::string assertAd(const std::string& kind) {
    auto& ads = world_.platform.ads();
    bool interstitial = std::any_of(ads.interstitials().begin(), ads.interstitials().end(),
                                    [](const auto& ad) { return ad->isPresented(); }) ||
                        std::any_of(ads.videoInterstitials().begin(), ads.videoInterstitials().end(), [](const auto& ad) {
                          auto video = std::dynamic_pointer_cast<adclient::SVAVideoInterstitialAd>(ad);
                          return video && video->isPresented();
                        });
    bool appOpen =
        std::any_of(ads.appOpenAds().begin(), ads.appOpenAds().end(), [](const auto& ad) { return ad->isPresented(); });
    std::string found = interstitial ? "interstitial" : appOpen ? "appOpen" : "none";
    if (found != kind) {
      fail("expected the ad shown to be " + kind + ", found " + found + " (" + std::to_string(ads.loadCount("interstitial")) +
           " interstitial loads, " + std::to_string(ads.presentationCount()) + " presentations)");
    }
    return {};
  }

  std::string assertAdLoads(const YAML::Node& a) {
    auto& ads = world_.platform.ads();
    for (const char* kind : {"interstitial", "appOpen", "banner"}) {
      if (a[kind] && ads.loadCount(kind) != a[kind].as<int>()) {
        fail("expected " + a[kind].Scalar() + " " + kind + " loads, found " + std::to_string(ads.loadCount(kind)));
      }
    }
    return {};
  }

  std::string screenshot(const std::string& name) {
    if (!options_.renderer || options_.screenshotDir.empty()) return "skipped (no --screenshots)";
    std::string path = options_.screenshotDir + "/" + name + ".png";
    std::string error;
    if (!options_.renderer->renderPNG(window_, path, [this] { settle(); }, &error)) fail("cannot write " + path + ": " + error);
    return path;
  }

  // Where the sim video interstitial's clip would be.
  static constexpr const char* kVideoInterstitialURL = "/sim/Library/Caches/video-interstitial.mp4";

  const Flow& flow_;
  const RunOptions& options_;
  kit::ConsoleCapture console_;
  // The script side of the video ads: its messages are printed, so assertConsole sees them.
  std::shared_ptr<adclient::SVAScriptMessageLog> adScript_ = std::make_shared<adclient::SVAScriptMessageLog>();
  kit::FatalHandler previousFatal_;
  RunFolder folder_;
  sim::World world_;
  double start_ = 0;
  double advanced_ = 0;
  std::shared_ptr<kit::Window> window_;
  int toastToken_ = 0;
  std::set<int> seenToasts_;
  std::vector<std::string> recentToasts_;
  std::size_t consoleMark_ = 0;
  // Background queues stalled (as on a slow phone): settling runs the main queue only.
  bool holdBackground_ = false;
};

}  // namespace

FlowResult runFlow(const Flow& flow, const RunOptions& options) {
  Run run(flow, options);
  return run.run();
}

}  // namespace flow

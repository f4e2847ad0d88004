#include "vault/SecurityQuestionVC.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "ads/ADNetAdaptiveBannerAd.h"
#include "kit/Fatal.h"
#include "kit/GestureRecognizer.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "platform/Platform.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "vault/SetPin.h"

namespace vault {

namespace {

// The platform's "whitespace and newline" characters.
bool isWhitespaceOrNewline(UChar32 c) {
  if (c == 0x09 || (c >= 0x0A && c <= 0x0D) || c == 0x85) return true;
  const std::int8_t type = u_charType(c);
  return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

icu::UnicodeString lower(const std::string& text) {
  icu::UnicodeString s = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
  s.toLower(icu::Locale::getRoot());
  return s;
}

std::string utf8(const icu::UnicodeString& s) {
  std::string out;
  s.toUTF8String(out);
  return out;
}

kit::Storyboard& storyboardOf(kit::ViewController& vc) {
  if (!vc.storyboard()) kit::fatal("Unexpectedly found nil while unwrapping the storyboard of " + vc.storyboardIdentifier());
  return *vc.storyboard();
}

}  // namespace

std::string answerForStoring(const std::string& text) {
  icu::UnicodeString s = lower(text);
  icu::UnicodeString kept;
  for (std::int32_t i = 0; i < s.length(); i = s.moveIndex32(i, 1)) {
    UChar32 c = s.char32At(i);
    if (!isWhitespaceOrNewline(c)) kept.append(c);
  }
  return utf8(kept);
}

std::string answerForChecking(const std::string& text) { return utf8(lower(text)); }

const std::vector<std::string>& SecurityQuestionVC::questions() {
  static const std::vector<std::string> list = {
      "In what city were you born?",
      "What is the name of your favorite pet?",
      "What is your mother's maiden name?",
      "What high school did you attend?",
      "What was the name of your school?",
      "What was the make of your first car?",
      "What was your favorite food as a child?",
  };
  return list;
}

SecurityQuestionVC::SecurityQuestionVC() {
  registerAction("confirnSecurityAnswer", [this](kit::Object*) { confirnSecurityAnswer(); });
  registerAction("openDashBoard", [this](kit::Object*) { openDashBoard(); });
  registerAction("textFieldDidChange:", [this](kit::Object* sender) {
    if (auto* field = dynamic_cast<kit::TextField*>(sender)) textFieldDidChange(*field);
  });
  registerAction("wasDraggedWithGestureRecognizer:", [this](kit::Object*) { wasDraggedWithGestureRecognizer(); });
}

void SecurityQuestionVC::loadView() {
  kit::ViewController::loadView();
  view().setFrame(kit::Screen::mainBounds());
  auto back = addOutlet<kit::Button>("backButton");
  back->setImage(kit::Image::named("back"), kit::kControlStateNormal);
  connect(*back, "openDashBoard");
  addOutlet<kit::Label>("titleLbl")->setText(std::string("Security Question"));
  addOutlet<kit::Label>("questionLbl")->setText(std::string("Question"));
  auto picker = addOutlet<kit::DropDown>("dropDown");
  picker->setPlaceholder(std::string("Select a question"));
  addOutlet<kit::Label>("answerLbl")->setText(std::string("Answer"));
  auto field = addOutlet<kit::TextField>("answer");
  field->setPlaceholder(std::string("Type your answer"));
  connect(*field, "textFieldDidChange:", kit::kControlEventEditingChanged);
  auto confirm = addOutlet<kit::Button>("confirmBtnColor");
  confirm->setTitle(std::string("Confirm"), kit::kControlStateNormal);
  confirm->setBackgroundColor(kit::Color::gray());
  connect(*confirm, "confirnSecurityAnswer");
  addOutlet<kit::View>("adsView");
  registerOutlet("adHeightConstraint", std::make_shared<kit::LayoutConstraint>(0.0));
}

void SecurityQuestionVC::viewDidLoad() {
  auto tap = std::make_shared<kit::TapGestureRecognizer>();
  tap->addTarget([this](kit::GestureRecognizer&) { performAction("wasDraggedWithGestureRecognizer:"); });
  dropDown->addGestureRecognizer(tap);
  dropDown->setUserInteractionEnabled(true);
  const kit::Color accent = shared::colorFromHex("#2485EF");
  dropDown->setBackgroundColor(accent);
  answer->setBackgroundColor(accent);
  dropDown->setRowBackgroundColor(kit::Color::clear());
  dropDown->setSelectedRowColor(accent);
  dropDown->setArrowColor(kit::Color::white());
  dropDown->setItemsColor(shared::colorFromHex("#B09398"));
  dropDown->setOptionArray(questions());
  dropDown->didSelect([this](const std::string& text, int, int) {
    dropDown->setText(text);
    selectedQuestion = text;
  });
}

void SecurityQuestionVC::viewWillAppear(bool) {
  ads::ADNetAdaptiveBannerAd::shared()->loadBanner(sharedAs<SecurityQuestionVC>(), adsView.shared(),
                                                   adHeightConstraint.shared());
}

void SecurityQuestionVC::wasDraggedWithGestureRecognizer() { dropDown->showList(); }

void SecurityQuestionVC::textFieldDidChange(kit::TextField& field) {
  const bool hasText = !field.text().value_or("").empty();
  confirmBtnColor->setBackgroundColor(hasText ? shared::colorFromHex("#2485EF") : kit::Color::gray());
}

void SecurityQuestionVC::confirnSecurityAnswer() {
  if (forgotpassword && *forgotpassword == "forgotpassword") {
    checkAnswer();
    return;
  }
  storeAnswer();
}

void SecurityQuestionVC::storeAnswer() {
  securityAnswer = answer->text() ? std::optional(answerForStoring(*answer->text())) : std::nullopt;
  if (!securityAnswer || securityAnswer->empty()) {
    kit::makeToast(view(), "Enter the answer");
    return;
  }
  auto& defaults = platform::preferences();
  defaults.setObject(kit::Value(*securityAnswer), shared::ANSWER);
  answer->setText(std::string());
  defaults.setBool(true, shared::IS_PIN_SET);
  defaults.setObject(selectedQuestion ? kit::Value(*selectedQuestion) : kit::Value(), shared::SELECTED_QUESTION);
  auto target = storyboardOf(*this).instantiate<SetPin>("SetPin");
  target->isFrom = "security";
  push(target);
}

void SecurityQuestionVC::checkAnswer() {
  securityAnswer = answer->text() ? std::optional(answerForChecking(*answer->text())) : std::nullopt;
  auto& defaults = platform::preferences();
  const std::optional<std::string> storedAnswer = defaults.stringForKey(shared::ANSWER);
  const std::optional<std::string> storedQuestion = defaults.stringForKey(shared::SELECTED_QUESTION);
  const bool matches = storedAnswer == securityAnswer && selectedQuestion && !selectedQuestion->empty() &&
                       storedQuestion && *storedQuestion == *selectedQuestion;
  if (!matches) {
    kit::makeToast(view(), "Entered Security Question or Answer is not matching or it is incorrect. Please retry again.");
    return;
  }
  auto target = storyboardOf(*this).instantiate<SetPin>("SetPin");
  target->isFrom = "forgot_password";
  push(target);
}

void SecurityQuestionVC::openDashBoard() {
  auto& board = storyboardOf(*this);
  if (isFrom && *isFrom == "setpin") {
    push(board.instantiateViewControllerWithIdentifier("SecretSpaceVC"));
  } else {
    push(board.instantiateViewControllerWithIdentifier("HomeVC"));
  }
}

void SecurityQuestionVC::push(std::shared_ptr<kit::ViewController> target) {
  if (auto* nav = navigationController()) nav->pushViewController(std::move(target), true);
}

}  // namespace vault

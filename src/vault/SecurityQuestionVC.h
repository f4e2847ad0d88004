// SecurityQuestionVC: stores a question and answer, which is also what turns the lock on, or,
// reached from a PIN screen's "forgot" action, checks them before a new PIN may be set.
// `forgotpassword` picks the job, `isFrom` where the back action goes. Question and answer
// are kept as plain text in the preference store. Main thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/DropDown.h"
#include "kit/ViewController.h"
#include "kit/Views.h"

namespace vault {

class SecurityQuestionVC : public kit::ViewController {
 public:
  SecurityQuestionVC();

  // The questions offered, in order.
  static const std::vector<std::string>& questions();

  // "forgotpassword" selects the checking job; anything else the storing job.
  std::optional<std::string> forgotpassword;
  // "setpin" sends the back action to the hub; anything else to the home screen.
  std::optional<std::string> isFrom;
  // The answer as normalised for the current job, after a confirm.
  std::optional<std::string> securityAnswer;
  // The question picked in the drop-down.
  std::optional<std::string> selectedQuestion;

  kit::Outlet<kit::Button> confirmBtnColor{this, "confirmBtnColor"};
  kit::Outlet<kit::LayoutConstraint> adHeightConstraint{this, "adHeightConstraint"};
  kit::Outlet<kit::View> adsView{this, "adsView"};
  kit::Outlet<kit::TextField> answer{this, "answer"};
  kit::Outlet<kit::DropDown> dropDown{this, "dropDown"};

  void loadView() override;
  // Colours the fields, fills the drop-down and lets a tap on it open the list.
  void viewDidLoad() override;
  // Loads the banner.
  void viewWillAppear(bool animated) override;

  // The confirm button: the checking job when `forgotpassword` is "forgotpassword", else the
  // storing job.
  void confirnSecurityAnswer();
  // The back action: a new hub for "setpin", else a new home screen; nothing is popped.
  void openDashBoard();
  // The answer changed: the confirm button turns accent-coloured while the answer has text.
  void textFieldDidChange(kit::TextField& field);
  // The drop-down's tap: opens the list.
  void wasDraggedWithGestureRecognizer();

 private:
  void storeAnswer();
  void checkAnswer();
  void push(std::shared_ptr<kit::ViewController> target);
};

// The storing job's form of an answer: lower case, with every white-space and line-break
// character removed (inside the text too).
std::string answerForStoring(const std::string& text);
// The checking job's form of an answer: lower case, white space kept.
std::string answerForChecking(const std::string& text);

}  // namespace vault
